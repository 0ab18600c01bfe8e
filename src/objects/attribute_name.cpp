// Makes an attribute name from a variable's name.
#include "objects/attribute_name.h"

namespace mirn2 {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_word(char c) { return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

}  // namespace

std::string attribute_name(std::string_view name) {
  std::string result;
  result.reserve(name.size() + 1);
  for (const char c : name) {
    if (c == '\r' || c == '\n' || c == '"') continue;
    if (result.empty() && is_digit(c)) result += '_';
    result += is_word(c) || is_digit(c) ? c : '_';
  }
  return result.empty() ? "_" : result;
}

}  // namespace mirn2
