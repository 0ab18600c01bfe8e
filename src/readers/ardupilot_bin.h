// ArduPilot binary flight logs.
//
// Every message type that is declared at the head of the log and has a time field is a group; its other
// fields are variables, with the message's time as x (seconds for TimeUS and TimeMS, raw otherwise).
//
// Details:
// - Later declarations offer no variables, but their lengths apply from there on, even for a type declared
//   before. Fields are always read by the declaration at the head.
// - A record too short for its time gives no sample; one too short for the value gives NaN.
// - A label without a format letter is not a variable; as the time field it reads 0.
// - A group's own name can be loaded: x and y are then both the message's first field, x scaled by the
//   time rule and y as it is.
// - Damage (no sync bytes, an undeclared type, a declared length below 3, a record or header cut off by the
//   end of the file) ends a load without an error; everything before it is kept. The log says where and why,
//   once for each state of the file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "readers/ardupilot_walk.h"
#include "readers/kept.h"
#include "readers/reader.h"
#include "runtime/sys.h"

namespace mirn2::rd {

// Where a variable's values lie. Offsets count from the end of the record header.
struct FieldLocation {
  uint8_t type = 0;  // message type
  uint64_t time_field = 0;
  uint64_t value_field = 0;
  uint64_t time_offset = 0;
  uint64_t value_offset = 0;
};

class ReaderArduPilotBIN : public Reader {
 public:
  explicit ReaderArduPilotBIN(std::filesystem::path source);
  ~ReaderArduPilotBIN() override;

  // Reads the declarations at the head of the log. A log without any offers nothing.
  void scan() override;

  // Throws mirn3::exc::error_t for a file that cannot be opened and for an unknown name.
  void load(rto_t& request) override;

  void forget() noexcept override;

  std::map<uint8_t, ardupilot::FormatRecord> formats;        // by declared type
  std::unordered_map<std::string, FieldLocation> locations;  // by full name

 private:
  struct Message;
  struct Learned;

  std::shared_ptr<Learned> learn();

  std::map<uint8_t, Message> messages_;            // what the offered declarations say
  std::optional<mirn3::sys::FileStamp> reported_;  // the state of the file whose damage was logged
  Kept<Learned> kept_;
};

}  // namespace mirn2::rd
