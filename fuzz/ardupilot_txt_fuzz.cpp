// Fuzzes the reader of ArduPilot text logs: any bytes are scanned, then every variable is loaded and
// compared with a plain walk over the same lines that is written here without a thought of speed.

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "memory_file.h"
#include "own_home.h"
#include "readers/ardupilot_txt.h"

namespace {

using mirn2::rd::ReaderArduPilotTXT;
using mirn2::rd::TextFieldLocation;

constexpr size_t most_bytes = 1 << 20;
constexpr size_t most_variables = 400;

[[noreturn]] void complain(const std::string& what) {
  std::fprintf(stderr, "ardupilot_txt_fuzz: %s\n", what.c_str());
  std::abort();
}

std::vector<std::string> words_of(const std::string& line) {
  std::vector<std::string> words(1);
  for (const char c : line) {
    if (c == '\0' || c == '\r' || c == '\n') break;
    if (c == ' ')
      words.emplace_back();
    else
      words.back() += c;
  }
  return words;
}

double number(const std::string& word) {
  double value = 0;
  const auto result = std::from_chars(word.data(), word.data() + word.size(), value);
  return result.ec == std::errc() ? value : std::numeric_limits<double>::quiet_NaN();
}

struct Samples {
  std::vector<double> x, y;
};

// What loading a variable should give.
Samples plain_load(const std::string& log, const TextFieldLocation& at,
                   const std::vector<std::string>& labels) {
  const std::string& label = labels[at.time_field];
  const double scale = label == "TimeMS" ? 0.001 : label == "TimeUS" ? 0.000001 : 1.0;
  Samples samples;
  for (size_t start = 0; start < log.size();) {
    const size_t feed = log.find('\n', start);
    const bool ended = feed != std::string::npos;
    const std::string line = log.substr(start, ended ? feed - start : feed);
    start = ended ? feed + 1 : log.size();
    if (!line.starts_with(at.message) || line.starts_with("FMT, ")) continue;
    const auto words = words_of(line);
    if (!ended && words.size() < labels.size() + 1) continue;
    if (words.size() <= at.time_field + 1 || words.size() <= at.value_field + 1) continue;
    samples.x.push_back(number(words[at.time_field + 1]) * scale);
    samples.y.push_back(number(words[at.value_field + 1]));
  }
  return samples;
}

void compare(const std::string& name, const mirn3::sample_vector& got, const std::vector<double>& expected) {
  if (got.size() != expected.size()) complain(name + ": wrong number of samples");
  for (size_t i = 0; i < expected.size(); ++i) {
    const double a = got[i], b = expected[i];
    if (a != b && (a == a || b == b)) complain(name + ": wrong sample at " + std::to_string(i));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  give_own_home();
  if (size > most_bytes) return 0;
  const std::string log(reinterpret_cast<const char*>(data), size);
  const MemoryFile file(data, size);
  ReaderArduPilotTXT reader(file.path());
  reader.scan();

  size_t variables = 0;
  for (const auto& group : reader.variables()) {
    for (const auto& leaf : group.children) {
      if (++variables > most_variables) return 0;
      const TextFieldLocation& at = reader.locations.at(leaf.full_name);
      mirn2::rd::rto_t request{.tag_key = "fuzz", .name = leaf.full_name, .x = {}, .y = {}};
      reader.load(request);
      const Samples expected = plain_load(log, at, reader.messages.at(at.message).labels);
      compare(leaf.full_name, request.x, expected.x);
      compare(leaf.full_name, request.y, expected.y);
    }
  }
  return 0;
}
