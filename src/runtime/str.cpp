// Small text helpers.
#include "runtime/str.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>

#include "runtime/entropy.h"

namespace mirn3::str {

namespace {

std::atomic<unsigned> forks{0};

// One random byte. A system call draws many at once; what a thread has left is dropped in a forked child,
// which must not go on with the same.
unsigned char random_byte() {
  struct Drawn {
    std::array<unsigned char, 512> bytes;
    size_t used = bytes.size();
    unsigned fork = 0;
  };
  static thread_local Drawn drawn;
  static const int watches_forks =
      ::pthread_atfork(nullptr, nullptr, [] { forks.fetch_add(1, std::memory_order_relaxed); });
  const unsigned now = forks.load(std::memory_order_relaxed);
  if (drawn.used == drawn.bytes.size() || drawn.fork != now || watches_forks != 0) {
    fill_random(drawn.bytes.data(), drawn.bytes.size());
    drawn.used = 0;
    drawn.fork = now;
  }
  return drawn.bytes[drawn.used++];
}

}  // namespace

std::string random(size_t n) {
  constexpr std::string_view alphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  constexpr size_t letters = 52;
  std::string text;
  text.reserve(n);
  while (text.size() < n) {
    // Bytes past the last whole multiple are drawn again, so that every character is equally likely.
    const size_t choices = text.empty() ? letters : alphabet.size();
    const unsigned char byte = random_byte();
    if (byte < 256 / choices * choices) text += alphabet[byte % choices];
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
  std::string lowered(text.size(), '\0');
  std::ranges::transform(text, lowered.begin(), lower);
  return lowered;
}

std::string_view trimmed(std::string_view text) noexcept {
  constexpr std::string_view blanks = " \t\r\n";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The bounds of the second byte are those of the Unicode Standard's table of well-formed sequences.
size_t utf8_length(std::string_view text) noexcept {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  const size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
  if (length == 0 || text.size() < length) return 0;
  const unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) return 0;
  for (size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

namespace {

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const size_t length = utf8_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace

std::string to_utf8(std::string_view text) {
  if (is_utf8(text)) return std::string(text);
  std::string result;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (code < 0x80) {
      result += c;
    } else {
      result += static_cast<char>(0xC0 | (code >> 6));
      result += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return result;
}

}  // namespace mirn3::str
