// Walking the record chain of an ArduPilot binary log.
#include "readers/ardupilot_walk.h"

#include <algorithm>

namespace mirn2::rd::ardupilot {
namespace {

// Adds one record to those of its type; a new run begins where the last one cannot describe it.
inline void add(Records& records, uint64_t position, uint32_t length, uint32_t reach) {
  if (records.runs.empty() || records.runs.back().length != length ||
      position - records.runs.back().base > reach) [[unlikely]] {
    records.runs.push_back({records.offsets.size(), position, length});
  }
  records.offsets.push_back(static_cast<uint32_t>(position - records.runs.back().base));
}

}  // namespace

std::string_view fixed_text(std::span<const char> field) noexcept {
  const auto end = std::find(field.begin(), field.end(), '\0');
  return {field.data(), static_cast<size_t>(end - field.begin())};
}

std::string_view describe(End end) noexcept {
  switch (end) {
    case End::complete:
      return "read to its end";
    case End::header_cut:
      return "the file ends inside a record header";
    case End::record_cut:
      return "the file ends inside a record";
    case End::no_sync:
      return "no record starts here";
    case End::undeclared:
      return "the record's type is not declared";
    case End::bad_length:
      return "the declared length of the record's type is too small";
  }
  return "";
}

size_t Walk::bytes_held() const noexcept {
  size_t bytes = sizeof(Walk);
  for (const Records& records : types) {
    bytes += records.offsets.capacity() * sizeof(uint32_t) + records.runs.capacity() * sizeof(Run);
  }
  return bytes;
}

Walk walk(std::span<const unsigned char> bytes, Lengths lengths, uint32_t reach) {
  Walk result;
  // A log may leave out the declaration of declarations, or get it wrong: their length is fixed.
  lengths[format_type] = sizeof(FormatRecord);
  const unsigned char* const data = bytes.data();
  const uint64_t size = bytes.size();
  uint64_t position = 0;
  for (;;) {
    if (size - position < header_size) {
      result.why = position == size ? End::complete : End::header_cut;
      break;
    }
    const unsigned char* record = data + position;
    if (record[0] != sync_first || record[1] != sync_second) {
      result.why = End::no_sync;
      break;
    }
    const uint8_t type = record[2];
    const int length = lengths[type];
    if (length < static_cast<int>(header_size)) [[unlikely]] {
      result.why = length < 0 ? End::undeclared : End::bad_length;
      break;
    }
    if (static_cast<uint64_t>(length) > size - position) [[unlikely]] {
      result.why = End::record_cut;
      break;
    }
    if (type == format_type && record[3] != format_type) lengths[record[3]] = record[4];
    add(result.types[type], position, static_cast<uint32_t>(length), reach);
    position += static_cast<uint64_t>(length);
  }
  result.end = position;
  return result;
}

}  // namespace mirn2::rd::ardupilot
