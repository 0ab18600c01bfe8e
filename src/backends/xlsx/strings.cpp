// Holds the texts of a workbook, each under a number.
#include "backends/xlsx/strings.h"

#include "backends/xlsx/xml.h"
#include "runtime/exc.h"

namespace mirn2::rd::xlsx {

namespace {

using mirn3::exc::error_t;

// Texts are names and states; a workbook with more of them holds no recorded data.
constexpr uint64_t most_bytes = uint64_t{1} << 30;
constexpr size_t most_texts = size_t{1} << 25;
constexpr uint64_t cost_of_own = 96;

[[noreturn]] void fail_too_many() {
  throw error_t("The workbook holds more text than can be loaded: remove the columns of text");
}

}  // namespace

void Strings::read_shared(ByteSource& source) {
  XmlReader xml(source);
  bool in_text = false;
  int phonetic = 0;  // how a text is pronounced is not part of it
  for (Token token; xml.next(token);) {
    if (token.kind == Token::Kind::text) {
      if (!in_text || phonetic > 0) continue;
      token.is_literal ? void(shared_ += token.text) : append_decoded(shared_, token.text);
      if (shared_.size() > most_bytes) fail_too_many();
    } else if (token.name == "t") {
      in_text = token.kind == Token::Kind::start && !token.is_empty;
    } else if (token.name == "rPh" && !token.is_empty) {
      phonetic += token.kind == Token::Kind::start ? 1 : -1;
    } else if (token.ends("si") || (token.starts("si") && token.is_empty)) {
      if (ends_.size() == most_texts) fail_too_many();
      ends_.push_back(shared_.size());
      phonetic = 0;
    }
  }
}

std::string_view Strings::operator[](uint64_t number) const noexcept {
  if (number < ends_.size()) {
    const uint64_t first = number == 0 ? 0 : ends_[number - 1];
    return {shared_.data() + first, ends_[number] - first};
  }
  number -= ends_.size();
  return number < own_.size() ? std::string_view(own_[number]) : std::string_view();
}

uint64_t Strings::number_of(std::string_view text) {
  if (const auto known = index_.find(text); known != index_.end()) return known->second;
  own_bytes_ += text.size() + cost_of_own;
  if (own_bytes_ > most_bytes || own_.size() == most_texts) fail_too_many();
  own_.emplace_back(text);
  const uint64_t number = size() - 1;
  index_.emplace(own_.back(), number);
  return number;
}

}  // namespace mirn2::rd::xlsx
