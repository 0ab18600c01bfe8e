// Turns the names of archive entries into paths that stay inside a folder.
#include "runtime/zip_entry_name.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

#include "runtime/exc.h"
#include "runtime/str.h"

namespace mirn3::zip {

namespace {

constexpr size_t longest_part = 255;  // what file systems take
constexpr size_t longest_name = 2048;

std::string escaped(std::string_view raw) {
  std::string text;
  while (!raw.empty()) {
    const auto first = static_cast<unsigned char>(raw.front());
    const size_t length = first < 0x20 || first == 0x7F ? 0 : str::utf8_length(raw);
    if (length == 0) {
      text += fmt::format("%{:02X}", first);
    } else {
      text += raw.substr(0, length);
    }
    raw.remove_prefix(std::max<size_t>(length, 1));
  }
  return text;
}

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

}  // namespace

std::string entry_name(std::string_view raw) {
  std::string text = escaped(raw);
  std::replace(text.begin(), text.end(), '\\', '/');
  const auto refuse = [&](const char* why) { throw exc::error_t(fmt::format("entry '{}' {}", text, why)); };
  if (text.empty()) refuse("has no name");
  if (text.size() > longest_name) {
    text.resize(80);
    refuse("has a name that is too long");
  }
  if (text.front() == '/') refuse("has an absolute path");
  if (text.size() >= 2 && text[1] == ':' && is_letter(text[0])) refuse("has a drive letter");

  std::string name;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('/', at), text.size());
    const std::string_view part = std::string_view(text).substr(at, end - at);
    at = end + 1;
    if (part.empty() || part == ".") continue;
    if (part == "..") refuse("leaves the folder");
    if (part.size() > longest_part) refuse("has a name that is too long");
    if (!name.empty()) name += '/';
    name += part;
  }
  return name;
}

}  // namespace mirn3::zip
