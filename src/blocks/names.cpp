// Names of blocks and signals as they are shown, and as identifiers.
#include "blocks/names.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace plexo {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_word(char c) { return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

constexpr std::string_view keywords[] = {
    "alignas", "alignof", "asm", "auto", "bool", "break", "case", "char", "const", "constexpr", "continue",
    "default", "do", "double", "else", "enum", "extern", "false", "float", "for", "goto", "if", "inline",
    "int", "long", "nullptr", "register", "restrict", "return", "short", "signed", "sizeof", "static",
    "static_assert", "struct", "switch", "thread_local", "true", "typedef", "typeof", "typeof_unqual",
    "union", "unsigned", "void", "volatile", "while",
    // macros that compilers define without being asked
    "linux", "unix", "i386", "sun", "mips", "arm"};

// Beginnings of macros of math.h, stdint.h and of the generated code itself.
constexpr std::string_view macro_beginnings[] = {
    "__",       "DOMAIN",   "FLT_",  "DBL_", "FP_",       "HUGE",   "INFINITY", "INT",         "MATH_",
    "MAINSYS_", "MAXFLOAT", "M_",    "NAN",  "OVERFLOW",  "PLOSS",  "PTRDIFF_", "SIG_ATOMIC_", "SING",
    "SIZE_",    "SNAN",     "TLOSS", "UINT", "UNDERFLOW", "WCHAR_", "WINT_",    "X_TLOSS"};

bool means_something_in_c(std::string_view name) {
  const bool is_reserved = name.size() > 1 && name[0] == '_' && name[1] >= 'A' && name[1] <= 'Z';
  return is_reserved || std::ranges::find(keywords, name) != std::end(keywords) ||
         std::ranges::any_of(macro_beginnings,
                             [=](std::string_view begin) { return name.starts_with(begin); });
}

// The next character of UTF-8, with its length; what is not UTF-8 is one byte.
std::pair<uint32_t, size_t> decode(std::string_view text) {
  const auto byte = [=](size_t i) { return static_cast<uint8_t>(text[i]); };
  const size_t length = byte(0) < 0x80 ? 1 : byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
  if (length == 1 || text.size() < length) return {byte(0), 1};
  uint32_t code = byte(0) & (0xffu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return {byte(0), 1};
    code = code << 6 | (byte(i) & 0x3f);
  }
  return {code, length};
}

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

std::string c_name(std::string_view name) {
  std::string result = attribute_name(name);
  if (means_something_in_c(result)) result += '_';
  return result;
}

std::string plain_text(std::string_view name) {
  constexpr std::string_view harmless = " .,:;+-=<>[]#%&!";
  std::string result(name);
  for (char& c : result) {
    if (!is_word(c) && !is_digit(c) && harmless.find(c) == std::string_view::npos) c = '_';
  }
  return result;
}

std::string python_literal(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const auto [code, length] = decode(text);
    if (code == '"' || code == '\\') {
      result += '\\';
      result += static_cast<char>(code);
    } else if (code >= 0x20 && code < 0x7f) {
      result += static_cast<char>(code);
    } else if (code < 0x100) {
      fmt::format_to(std::back_inserter(result), "\\x{:02x}", code);
    } else if (code < 0x10000) {
      fmt::format_to(std::back_inserter(result), "\\u{:04x}", code);
    } else {
      fmt::format_to(std::back_inserter(result), "\\U{:08x}", std::min<uint32_t>(code, 0x10ffff));
    }
    text.remove_prefix(length);
  }
  return result + '"';
}

std::string UniqueNames::make(std::string name) {
  std::string result = name;
  while (!taken_.insert(result).second) {
    uint64_t& next = next_.try_emplace(name, 2).first->second;
    result = fmt::format("{}_{}", name, next++);
  }
  return result;
}

}  // namespace plexo
