// Names of blocks and signals as other languages may take them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace plexo {

// The rule for attributes of a Container: carriage returns, line feeds and double quotes go; a first digit
// gets "_" in front; every other byte that is no ASCII letter, digit or "_" becomes "_". An empty name
// gives "_".
std::string attribute_name(std::string_view name);

// The attribute name, with "_" after it where C gives the word a meaning of its own.
std::string c_name(std::string_view name);

// The same text for a comment or a message in any language: what is not an ASCII letter, digit, blank or one
// of a few harmless signs becomes "_".
std::string plain_text(std::string_view name);

// Python's text literal of it, in ASCII alone.
std::string python_literal(std::string_view text);

// Names that differ from each other: one that is taken gets a number.
class UniqueNames {
 public:
  std::string make(std::string name);

 private:
  std::unordered_set<std::string> taken_;
  std::unordered_map<std::string, uint64_t> next_;
};

}  // namespace plexo
