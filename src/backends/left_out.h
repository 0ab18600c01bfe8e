// What a file holds and kvalo does not offer as a variable: named in the log with its reason.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "runtime/log.h"

namespace mirn2::rd {

class LeftOut {
 public:
  // Without `logged` the reasons are only counted. The path must outlive this.
  explicit LeftOut(const std::filesystem::path& path, bool logged = true) : path_(path), logged_(logged) {}

  // The log gets the first 20, so that a file of millions of them cannot fill it.
  void add(std::string_view name, std::string_view reason) {
    if (first_.empty()) first_ = fmt::format(" ({:s}: {:s})", name, reason);
    if (++count_ <= most_lines) log(fmt::format("{:s} is not offered: {:s}", name, reason));
  }

  // Logs how many more there were.
  void finish() const {
    if (count_ > most_lines) log(fmt::format("{:d} more are not offered", count_ - most_lines));
  }

  // " (name: reason)" of the first one, to follow a sentence; empty if there is none.
  const std::string& first() const noexcept { return first_; }

 private:
  static constexpr size_t most_lines = 20;

  void log(const std::string& text) const {
    if (logged_) mirn3::log::write(mirn3::log::info, fmt::format("{:s}: {:s}", path_.string(), text));
  }

  const std::filesystem::path& path_;
  bool logged_;
  size_t count_ = 0;
  std::string first_;
};

}  // namespace mirn2::rd
