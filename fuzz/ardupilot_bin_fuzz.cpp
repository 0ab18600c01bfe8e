// Fuzzes the reader of ArduPilot binary logs: any bytes are scanned, then every variable is loaded and
// compared with a plain walk over the same bytes that is written here without a thought of speed.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "memory_file.h"
#include "own_home.h"
#include "readers/ardupilot_bin.h"

namespace {

using mirn2::rd::FieldLocation;
using mirn2::rd::ReaderArduPilotBIN;
using Bytes = std::vector<uint8_t>;

constexpr size_t most_bytes = 1 << 20;
constexpr size_t most_variables = 400;
constexpr size_t most_texts = 4;  // text fields go through the tag store, which is slow

[[noreturn]] void complain(const std::string& what) {
  std::fprintf(stderr, "ardupilot_bin_fuzz: %s\n", what.c_str());
  std::abort();
}

template <typename T>
double number(const uint8_t* at) {
  uint64_t bits = 0;
  for (size_t i = sizeof(T); i-- > 0;) bits = bits << 8 | at[i];
  T value;
  std::memcpy(&value, &bits, sizeof value);  // little-endian hosts
  return static_cast<double>(value);
}

bool is_text(char letter) { return letter == 'n' || letter == 'N' || letter == 'Z'; }

// The width of a field and its value at `at`, which may be null.
double field(char letter, const uint8_t* at, size_t& width) {
  const auto as = [&](size_t bytes, double (*read)(const uint8_t*)) {
    width = bytes;
    return at != nullptr ? read(at) : 0.0;
  };
  switch (letter) {
    case 'b':
      return as(1, number<int8_t>);
    case 'B':
    case 'M':
      return as(1, number<uint8_t>);
    case 'h':
      return as(2, number<int16_t>);
    case 'H':
      return as(2, number<uint16_t>);
    case 'c':
      return as(2, number<int16_t>) * 0.01;
    case 'C':
      return as(2, number<uint16_t>) * 0.01;
    case 'i':
    case 'L':
      return as(4, number<int32_t>);
    case 'I':
      return as(4, number<uint32_t>);
    case 'e':
      return as(4, number<int32_t>) * 0.01;
    case 'E':
      return as(4, number<uint32_t>) * 0.01;
    case 'f':
      return as(4, number<float>);
    case 'd':
      return as(8, number<double>);
    case 'q':
      return as(8, number<int64_t>);
    case 'Q':
      return as(8, number<uint64_t>);
    case 'n':
      width = 4;
      return 0;
    case 'N':
      width = 16;
      return 0;
    case 'Z':
    case 'a':
      width = 64;
      return 0;
    default:
      width = 0;
      return 0;
  }
}

struct Samples {
  std::vector<double> x, y;
};

// The letter and the label of a field as a declaration states them.
struct Declared {
  explicit Declared(const uint8_t* record) {
    letters.assign(reinterpret_cast<const char*>(record + 9), 16);
    letters.resize(std::strlen(letters.c_str()));
    std::string text(reinterpret_cast<const char*>(record + 25), 64);
    text.resize(std::strcspn(text.c_str(), "\r\n"));
    labels.emplace_back();
    for (const char c : text) {
      if (c == ',')
        labels.emplace_back();
      else
        labels.back() += c;
    }
  }
  char letter(size_t k) const { return k < letters.size() ? letters[k] : '\0'; }
  std::string letters;
  std::vector<std::string> labels;
};

// What loading a variable should give, going through the log byte by byte. Text values stay 0.
Samples plain_load(const Bytes& log, std::map<int, int> lengths, const Declared& declared,
                   const FieldLocation& at) {
  Samples samples;
  const std::string label = at.time_field < declared.labels.size() ? declared.labels[at.time_field] : "";
  const double scale = label == "TimeMS" ? 0.001 : label == "TimeUS" ? 0.000001 : 1.0;
  size_t time_width = 0, value_width = 0;
  field(declared.letter(at.time_field), nullptr, time_width);
  field(declared.letter(at.value_field), nullptr, value_width);
  for (size_t position = 0; position + 3 <= log.size();) {
    const uint8_t* record = log.data() + position;
    if (record[0] != 0xA3 || record[1] != 0x95) break;
    if (record[2] != 0x80 && !lengths.contains(record[2])) break;
    const int length = record[2] == 0x80 ? 89 : lengths[record[2]];
    if (length < 3 || position + static_cast<size_t>(length) > log.size()) break;
    if (record[2] == 0x80) lengths[record[3]] = record[4];
    const size_t payload = static_cast<size_t>(length) - 3;
    if (record[2] == at.type && at.time_offset + time_width <= payload) {
      const Bytes copy(record + 3, record + length);
      samples.x.push_back(field(declared.letter(at.time_field), copy.data() + at.time_offset, time_width) *
                          scale);
      samples.y.push_back(
          at.value_offset + value_width > payload
              ? std::numeric_limits<double>::quiet_NaN()
              : field(declared.letter(at.value_field), copy.data() + at.value_offset, value_width));
    }
    position += static_cast<size_t>(length);
  }
  return samples;
}

void compare(const std::string& name, const char* axis, const mirn3::sample_vector& got,
             const std::vector<double>& expected, bool text) {
  if (got.size() != expected.size()) complain(name + ": wrong number of samples in " + axis);
  for (size_t i = 0; i < expected.size() && !text; ++i) {
    const double a = got[i], b = expected[i];
    if (a != b && (a == a || b == b))
      complain(name + ": wrong sample in " + axis + " at " + std::to_string(i));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  give_own_home();
  if (size > most_bytes) return 0;
  const Bytes log(data, data + size);
  const MemoryFile file(data, size);
  ReaderArduPilotBIN reader(file.path());
  reader.scan();

  std::map<int, int> lengths;
  for (const auto& [type, format] : reader.formats) lengths[type] = format.length;
  std::vector<std::string> names;
  for (const auto& group : reader.variables()) {
    names.push_back(group.full_name);
    for (const auto& leaf : group.children) names.push_back(leaf.full_name);
  }
  if (names.size() > most_variables) names.resize(most_variables);
  size_t texts = 0;
  for (const std::string& name : names) {
    const FieldLocation& at = reader.locations.at(name);
    const Declared declared(reinterpret_cast<const uint8_t*>(&reader.formats.at(at.type)));
    const bool time_text = is_text(declared.letter(at.time_field));
    const bool value_text = is_text(declared.letter(at.value_field));
    if ((time_text || value_text) && ++texts > most_texts) continue;
    mirn2::rd::rto_t request{.tag_key = "fuzz", .name = name, .x = {}, .y = {}};
    reader.load(request);
    const Samples expected = plain_load(log, lengths, declared, at);
    compare(name, "x", request.x, expected.x, time_text);
    compare(name, "y", request.y, expected.y, value_text);
  }
  return 0;
}
