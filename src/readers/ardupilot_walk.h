// The record chain of an ArduPilot binary log: where the records of every message type lie.
//
// A log is a chain of records. Each starts with two sync bytes and its message type; the declaration (FMT
// record) of that type gives its length. So finding records takes a walk from the first to the last. It is
// done once: with its result every field can be read.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace mirn2::rd::ardupilot {

inline constexpr unsigned char sync_first = 0xA3;
inline constexpr unsigned char sync_second = 0x95;
inline constexpr uint8_t format_type = 0x80;  // the message type of declarations
inline constexpr size_t header_size = 3;      // two sync bytes and the message type

// A declaration, byte for byte as in the log. Texts end at their first zero byte, if they have one.
struct FormatRecord {
  uint8_t sync[2];
  uint8_t id;      // format_type
  uint8_t type;    // the message type declared
  uint8_t length;  // of its records, header included
  char name[4];
  char format[16];  // one letter a field
  char labels[64];  // separated by commas
};
static_assert(sizeof(FormatRecord) == 89 && alignof(FormatRecord) == 1);

// The text in a field of fixed width: up to its first zero byte, or all of it.
std::string_view fixed_text(std::span<const char> field) noexcept;

// The declared length of every message type's records, header included; -1: not declared.
using Lengths = std::array<int, 256>;

// A stretch of one type's records with one length and one base.
struct Run {
  size_t first;     // index of its first record among those of the type
  uint64_t base;    // added to the offsets
  uint32_t length;  // of each record, header included
};

// The records of one type: record i of a run starts at byte run.base + offsets[i].
struct Records {
  std::vector<uint32_t> offsets;
  std::vector<Run> runs;
};

// Why a walk ended.
enum class End { complete, header_cut, record_cut, no_sync, undeclared, bad_length };
std::string_view describe(End end) noexcept;

struct Walk {
  std::array<Records, 256> types;
  uint64_t end = 0;  // the byte at which the walk ended: everything before it is whole records
  End why = End::complete;

  size_t bytes_held() const noexcept;  // memory of `types`
};

// Walks from the first byte to the last or to the first damage. Declarations met on the way set the
// length of their type from there on, the newest applies; declarations themselves are always 89 bytes.
// Every record listed lies whole within `bytes`. `reach` bounds the distance of a record from its run's
// base; only tests change it.
Walk walk(std::span<const unsigned char> bytes, Lengths lengths, uint32_t reach = UINT32_MAX);

}  // namespace mirn2::rd::ardupilot
