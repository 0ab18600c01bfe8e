// What all readers share: names, the check of time vectors and warnings.
#include "readers/reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <utility>

#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/num_ramp.h"
#include "runtime/python.h"
#include "runtime/tag.h"

namespace mirn2::rd {

namespace {

// A sample is enough, and costs nothing for a long file.
constexpr size_t checked_values = 512;

bool is_time_vector(std::span<const double> sample) {
  for (size_t i = 1; i < sample.size(); ++i) {
    if (sample[i - 1] > sample[i]) return false;
  }
  return sample.back() > sample.front();
}

}  // namespace

Reader::Reader(std::filesystem::path source) : path_(std::move(source)) {}

Reader::Turn::Turn(Reader& reader) : reader_(reader) {
  const std::thread::id self = std::this_thread::get_id();
  if (reader.busy_with_.load(std::memory_order_relaxed) == self) {
    throw mirn3::exc::error_t(fmt::format("'{:s}' is being read already: its reader cannot wait for itself",
                                          reader.path().string()));
  }
  reader.busy_.lock();
  reader.busy_with_.store(self, std::memory_order_relaxed);
}

Reader::Turn::~Turn() {
  reader_.busy_with_.store({}, std::memory_order_relaxed);
  reader_.busy_.unlock();
}

void Reader::refuse_name(rto_t& request) const {
  request.x.reset();
  request.y.reset();
  if (request.tolerate_unknown) return;
  throw mirn3::exc::error_t(
      fmt::format("'{:s}' has no samples of its own in '{:s}'; load one of the listed variables",
                  request.name, path_.string()));
}

std::string compose_name(std::string_view prefix, std::string_view name) {
  if (prefix.empty()) return std::string(name);
  std::string full;
  full.reserve(prefix.size() + 1 + name.size());
  full.append(prefix).append(1, '.').append(name);
  return full;
}

void check_time_vector(const Reader& reader, mirn3::shared_vector<double>& x) {
  const std::span<const double> stamps = std::as_const(x).span();
  if (x.empty() || is_time_vector(stamps.first(std::min(stamps.size(), checked_values)))) return;
  x = mirn3::num::ramp(1.0, x.size());
  warn("The source provided an invalid time vector");
  warn(fmt::format("A strictly increasing vector of indexes will be used instead for file '{:s}'",
                   reader.path().string()));
}

void save_tags() {
  try {
    mirn3::tag::save();
  } catch (const mirn3::exc::error_t& failure) {
    mirn3::log::write(mirn3::log::warning, failure.what());
  }
}

void warn(std::string_view text) {
  mirn3::log::write(mirn3::log::warning, text);
  mirn3::python::print_line(text);
}

}  // namespace mirn2::rd
