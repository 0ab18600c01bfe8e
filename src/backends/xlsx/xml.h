// A pull reader for the XML of workbooks: start tags, end tags and text, straight out of a buffer.
//
// It refuses document types, so no entity can grow; it drops namespace prefixes, as the elements that are
// used are unique without them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "backends/xlsx/byte_source.h"

namespace mirn2::rd::xlsx {

struct Token {
  enum class Kind : uint8_t { start, end, text };

  Kind kind = Kind::text;
  bool is_empty = false;        // a start tag that ends itself: no end tag follows
  bool is_literal = false;      // text without entities
  std::string_view name;        // of the element, without prefix
  std::string_view attributes;  // of a start tag, as written
  std::string_view text;

  bool starts(std::string_view element) const { return kind == Kind::start && name == element; }
  bool ends(std::string_view element) const { return kind == Kind::end && name == element; }

  // The value of an attribute by its name without prefix, entities as written; empty if there is none.
  std::string_view attribute(std::string_view wanted) const;
};

// Takes the first attribute off the text of a tag; false when there is none left. The name has its prefix.
bool next_attribute(std::string_view& rest, std::string_view& name, std::string_view& value);

class XmlReader {
 public:
  explicit XmlReader(ByteSource& source);

  // The next token, valid until the next call; false at the end. Throws mirn3::exc::error_t for text that
  // is not XML, has a document type, or has a single piece of more than 32 MiB.
  bool next(Token& token);

 private:
  bool fill();
  const char* find(std::string_view end, size_t from);
  void read_tag(Token& token);

  ByteSource& source_;
  std::vector<char> buffer_;
  size_t at_ = 0;   // of the next token
  size_t end_ = 0;  // of what was read
  bool over_ = false;
};

// The text with its entities replaced; what is not an entity stays.
void append_decoded(std::string& out, std::string_view text);
std::string decoded(std::string_view text);

}  // namespace mirn2::rd::xlsx
