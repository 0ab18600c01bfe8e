// Small text helpers.
#include "runtime/str.h"

#include <algorithm>
#include <array>

#include "runtime/entropy.h"

namespace mirn3::str {

std::string random(size_t n) {
  constexpr std::string_view alphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  constexpr size_t letters = 52;
  std::array<unsigned char, 64> bytes;
  std::string text;
  text.reserve(n);
  while (text.size() < n) {
    const size_t drawn = std::min(bytes.size(), n - text.size());
    fill_random(bytes.data(), drawn);
    for (size_t i = 0; i < drawn; ++i) {
      // Bytes past the last whole multiple are drawn anew, so that every character is equally likely.
      const size_t choices = text.empty() ? letters : alphabet.size();
      if (bytes[i] < 256 / choices * choices) text += alphabet[bytes[i] % choices];
    }
  }
  return text;
}

std::string replace_all(std::string_view text, std::string_view from, std::string_view to) {
  if (from.empty()) return std::string(text);
  std::string result;
  result.reserve(text.size());
  size_t begin = 0;
  for (size_t at; (at = text.find(from, begin)) != std::string_view::npos; begin = at + from.size()) {
    result.append(text, begin, at - begin).append(to);
  }
  return result.append(text, begin);
}

std::string to_lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

}  // namespace mirn3::str
