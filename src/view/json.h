// Writes JSON: the texts that the server sends.
#pragma once

#include <fmt/format.h>

#include <cmath>
#include <string>
#include <string_view>

namespace kvalo_view {

class Json {
 public:
  const std::string& text() const { return out_; }

  Json& open(char bracket) {
    comma();
    out_ += bracket;
    fresh_ = true;
    return *this;
  }
  Json& close(char bracket) {
    out_ += bracket;
    fresh_ = false;
    return *this;
  }
  Json& key(std::string_view name) {
    value(name);
    out_ += ':';
    fresh_ = true;
    return *this;
  }

  // Numbers that JSON does not have become texts.
  void value(double number) {
    if (std::isfinite(number)) {
      raw(fmt::format("{}", number));
    } else {
      value(std::string_view(std::isnan(number) ? "NaN" : number > 0 ? "Infinity" : "-Infinity"));
    }
  }
  void value(bool truth) { raw(truth ? "true" : "false"); }
  void value(int number) { raw(std::to_string(number)); }
  void value(uint32_t number) { raw(std::to_string(number)); }
  void value(uint64_t number) { raw(std::to_string(number)); }
  void value(const char* text) { value(std::string_view(text)); }
  // UTF-8; a byte that is not part of any becomes a question mark.
  void value(std::string_view text);
  void null() { raw("null"); }

  template <typename T>
  Json& member(std::string_view name, const T& v) {
    key(name).value(v);
    return *this;
  }
  // null for NaN.
  Json& known(std::string_view name, double number) {
    key(name);
    if (std::isnan(number)) {
      null();
    } else {
      value(number);
    }
    return *this;
  }

 private:
  void comma() {
    if (!fresh_) out_ += ',';
    fresh_ = false;
  }
  void raw(std::string_view text) {
    comma();
    out_ += text;
  }

  std::string out_;
  bool fresh_ = true;
};

}  // namespace kvalo_view
