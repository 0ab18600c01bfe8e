// What the tests of readers share: opening a file, the names it offers, and what a load gives.
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "readers/reader.h"
#include "runtime/home.h"

struct Samples {
  std::vector<double> x, y;

  // NaN is the same as NaN.
  bool operator==(const Samples& other) const {
    const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    return std::ranges::equal(x, other.x, same) && std::ranges::equal(y, other.y, same);
  }
};

inline Samples load(mirn2::rd::Reader& reader, const std::string& name, std::string_view tag_key = "test") {
  mirn2::rd::rto_t request{.tag_key = tag_key, .name = name, .x = {}, .y = {}};
  reader.load(request);
  EXPECT_EQ(request.x.size(), request.y.size()) << name;
  Samples samples{{request.x.begin(), request.x.end()}, {request.y.begin(), request.y.end()}};
  // Nothing that the caller writes may be found in another load.
  request.x.make_unique();
  std::fill_n(request.x.data(), request.x.size(), NAN);
  std::fill_n(request.y.data(), request.y.size(), NAN);
  return samples;
}

// The full names of the variables, those of a group instead of its own.
inline std::vector<std::string> leaves(const mirn2::rd::Reader& reader) {
  std::vector<std::string> names;
  for (const auto& node : reader.variables()) {
    if (node.children.empty()) names.push_back(node.full_name);
    for (const auto& leaf : node.children) names.push_back(leaf.full_name);
  }
  return names;
}

template <typename Reader>
class Reading : public Home {
 protected:
  using Opened = std::unique_ptr<Reader>;

  template <typename... Options>
  static Opened open_file(const std::filesystem::path& file, Options... options) {
    auto reader = std::make_unique<Reader>(file, options...);
    reader->scan();
    return reader;
  }
  template <typename... Options>
  Opened open(const std::string& content, Options... options) const {
    return open_file(make("recording", content), options...);
  }
};
