// Texts in JSON.
#include "view/json.h"

namespace kvalo_view {

namespace {

// Bytes of the UTF-8 character that the text begins with; 0 if there is none.
size_t character(std::string_view text) {
  const auto byte = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const auto follows = [&](size_t i) { return (byte(i) & 0xC0U) == 0x80U; };
  const unsigned lead = byte(0), next = byte(1);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return follows(1) ? 2 : 0;
  if (lead >= 0xE0 && lead < 0xF0) {
    const bool fine =
        follows(1) && follows(2) && !(lead == 0xE0 && next < 0xA0) && !(lead == 0xED && next >= 0xA0);
    return fine ? 3 : 0;
  }
  if (lead >= 0xF0 && lead < 0xF5) {
    const bool fine = follows(1) && follows(2) && follows(3) && !(lead == 0xF0 && next < 0x90) &&
                      !(lead == 0xF4 && next >= 0x90);
    return fine ? 4 : 0;
  }
  return 0;
}

}  // namespace

void Json::value(std::string_view text) {
  comma();
  out_ += '"';
  while (!text.empty()) {
    const size_t length = character(text);
    const auto c = static_cast<unsigned char>(text[0]);
    if (length == 0) {
      out_ += '?';
    } else if (c == '"' || c == '\\') {
      out_ += '\\';
      out_ += text[0];
    } else if (c < 0x20) {
      out_ += fmt::format("\\u{:04x}", c);
    } else {
      out_ += text.substr(0, length);
    }
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  out_ += '"';
}

}  // namespace kvalo_view
