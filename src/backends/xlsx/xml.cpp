// Reads the XML of workbooks, token by token.
#include "backends/xlsx/xml.h"

#include <charconv>
#include <cstring>
#include <utility>

#include "runtime/exc.h"

namespace mirn2::rd::xlsx {

namespace {

using mirn3::exc::error_t;

constexpr size_t first_room = size_t{256} << 10;
constexpr size_t largest_piece = size_t{32} << 20;

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view without_prefix(std::string_view name) {
  const size_t colon = name.find(':');
  return colon == name.npos ? name : name.substr(colon + 1);
}

void append_utf8(std::string& out, uint32_t code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
    return;
  }
  const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
  constexpr unsigned char lead[] = {0, 0xC0, 0xE0, 0xF0};
  out += static_cast<char>(lead[more] | code >> (6 * more));
  for (int i = more - 1; i >= 0; --i) out += static_cast<char>(0x80 | (code >> (6 * i) & 0x3F));
}

// "amp" or "#x41"; false when there is no such entity.
bool append_entity(std::string& out, std::string_view name) {
  constexpr std::pair<std::string_view, char> known[] = {
      {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
  for (const auto& [text, c] : known) {
    if (name == text) {
      out += c;
      return true;
    }
  }
  if (!name.starts_with('#')) return false;
  name.remove_prefix(1);
  const bool hexadecimal = name.starts_with('x');
  if (hexadecimal) name.remove_prefix(1);
  uint32_t code = 0;
  const char* last = name.data() + name.size();
  const auto [end, error] = std::from_chars(name.data(), last, code, hexadecimal ? 16 : 10);
  const bool is_character = code > 0 && code < 0x110000 && (code < 0xD800 || code > 0xDFFF);
  if (error != std::errc() || end != last || !is_character) return false;
  append_utf8(out, code);
  return true;
}

}  // namespace

bool next_attribute(std::string_view& rest, std::string_view& name, std::string_view& value) {
  // Byte by byte: names and values are too short for anything else to pay.
  const char* at = rest.data();
  const char* const last = at + rest.size();
  while (at != last && is_blank(*at)) ++at;
  const char* const name_first = at;
  const char* name_last = at;
  for (; at != last && *at != '='; ++at) {
    if (!is_blank(*at)) name_last = at + 1;
  }
  if (at == last) return false;
  ++at;
  while (at != last && is_blank(*at)) ++at;
  if (at == last || (*at != '"' && *at != '\'')) return false;
  const char quote = *at++;
  const char* const value_first = at;
  while (at != last && *at != quote) ++at;
  if (at == last) return false;
  name = {name_first, static_cast<size_t>(name_last - name_first)};
  value = {value_first, static_cast<size_t>(at - value_first)};
  ++at;
  rest = {at, static_cast<size_t>(last - at)};
  return true;
}

std::string_view Token::attribute(std::string_view wanted) const {
  std::string_view rest = attributes, found, value;
  while (next_attribute(rest, found, value)) {
    if (without_prefix(found) == wanted) return value;
  }
  return {};
}

XmlReader::XmlReader(ByteSource& source) : source_(source), buffer_(first_room) {
  fill();
  const std::string_view head(buffer_.data(), end_);
  if (head.starts_with("\xEF\xBB\xBF")) at_ = 3;
  if (head.starts_with("\xFE\xFF") || head.starts_with("\xFF\xFE") ||
      head.substr(0, 2) == std::string_view("\0<", 2) || head.substr(0, 2) == std::string_view("<\0", 2)) {
    throw error_t("The workbook's XML is written in UTF-16: save it again in the usual form");
  }
}

// Reads on, keeping what begins at at_. False at the end of the source.
bool XmlReader::fill() {
  if (over_) return false;
  if (at_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + at_, end_ - at_);
    end_ -= at_;
    at_ = 0;
  }
  if (end_ == buffer_.size()) {
    if (buffer_.size() >= largest_piece)
      throw error_t("The workbook is damaged: a piece of its XML has no end");
    buffer_.resize(buffer_.size() * 2);
  }
  const size_t got = source_.read(buffer_.data() + end_, buffer_.size() - end_);
  end_ += got;
  over_ = got == 0;
  return got > 0;
}

// Where `end` begins, looked for from at_ + from on; reads on as far as needed. Throws if it never comes.
const char* XmlReader::find(std::string_view end, size_t from) {
  for (;;) {
    const std::string_view rest(buffer_.data() + at_, end_ - at_);
    if (const size_t found = rest.find(end, from); found != rest.npos) return rest.data() + found;
    from = std::max(from, rest.size() >= end.size() ? rest.size() - end.size() + 1 : 0);
    if (!fill()) throw error_t("The workbook is damaged: its XML ends too early");
  }
}

bool XmlReader::next(Token& token) {
  for (;;) {
    if (at_ == end_ && !fill()) return false;
    if (buffer_[at_] != '<') {
      const char* open = static_cast<const char*>(std::memchr(buffer_.data() + at_, '<', end_ - at_));
      while (open == nullptr) {
        const size_t seen = end_ - at_;
        if (!fill()) {  // blanks after the last tag
          at_ = end_;
          return false;
        }
        open = static_cast<const char*>(std::memchr(buffer_.data() + at_ + seen, '<', end_ - at_ - seen));
      }
      const char* first = buffer_.data() + at_;
      token.kind = Token::Kind::text;
      token.is_literal = false;
      token.text = {first, static_cast<size_t>(open - first)};
      at_ += token.text.size();
      return true;
    }
    while (end_ - at_ < 9 && fill()) continue;
    const std::string_view rest(buffer_.data() + at_, end_ - at_);
    if (rest.size() < 3) throw error_t("The workbook is damaged: its XML ends too early");
    if (rest[1] == '?') {
      at_ = static_cast<size_t>(find("?>", 2) + 2 - buffer_.data());
    } else if (rest.starts_with("<!--")) {
      at_ = static_cast<size_t>(find("-->", 4) + 3 - buffer_.data());
    } else if (rest.starts_with("<![CDATA[")) {
      const char* close = find("]]>", 9);
      const char* first = buffer_.data() + at_ + 9;
      token.kind = Token::Kind::text;
      token.is_literal = true;
      token.text = {first, static_cast<size_t>(close - first)};
      at_ = static_cast<size_t>(close + 3 - buffer_.data());
      return true;
    } else if (rest[1] == '!') {
      throw error_t("The workbook is refused: its XML declares a document type, which no workbook has");
    } else {
      read_tag(token);
      return true;
    }
  }
}

void XmlReader::read_tag(Token& token) {
  // The end of the tag is a ">" outside of quotes.
  size_t i = 1;
  char quote = 0;
  for (;; ++i) {
    if (at_ + i == end_ && !fill()) throw error_t("The workbook is damaged: its XML ends too early");
    const char c = buffer_[at_ + i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      break;
    }
  }
  std::string_view inner(buffer_.data() + at_ + 1, i - 1);
  at_ += i + 1;
  const bool is_end = inner.starts_with('/');
  if (is_end) inner.remove_prefix(1);
  token.kind = is_end ? Token::Kind::end : Token::Kind::start;
  token.is_empty = !is_end && inner.ends_with('/');
  if (token.is_empty) inner.remove_suffix(1);
  size_t length = 0;
  while (length < inner.size() && !is_blank(inner[length])) ++length;
  token.name = without_prefix(inner.substr(0, length));
  token.attributes = inner.substr(length);
}

void append_decoded(std::string& out, std::string_view text) {
  for (;;) {
    const size_t mark = text.find('&');
    out += text.substr(0, mark);
    if (mark == text.npos) return;
    text.remove_prefix(mark);
    constexpr size_t longest_entity = 12;
    const size_t end = text.substr(0, longest_entity).find(';');
    if (end != text.npos && append_entity(out, text.substr(1, end - 1))) {
      text.remove_prefix(end + 1);
    } else {
      out += '&';
      text.remove_prefix(1);
    }
  }
}

std::string decoded(std::string_view text) {
  std::string out;
  append_decoded(out, text);
  return out;
}

}  // namespace mirn2::rd::xlsx
