// ArduPilot flight logs in their text form: one record per line, fields separated by a comma and a space.
//
// Every message type that is declared (FMT line) at the head of the log and has a time field is a group;
// its other fields are variables, with the message's time as x (seconds for TimeUS and TimeMS, raw
// otherwise). All values are read as numbers.
//
// Details:
// - A line is a message's when it begins with the message's name, so lines of GPS2 are also GPS's. Lines
//   that begin with "FMT, " are declarations, wherever they stand, and never data.
// - A line's text ends at its first carriage return, line feed or zero byte.
// - A declaration of fewer than six words, or without a name, declares nothing.
// - A word that does not read as a number gives NaN. A line that ends before one of the two fields gives
//   no sample; how many such lines there were goes to the log.
// - A last line without a line feed counts if it has every declared field; otherwise it is still being
//   written.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "readers/kept.h"
#include "readers/reader.h"

namespace mirn2::rd {

// What a declaration says about its message.
struct TextMessage {
  std::string format;  // one letter per field, and what follows them
  std::vector<std::string> labels;
};

// Where a variable's values are. Fields count from 0 after the message name.
struct TextFieldLocation {
  std::string message;  // what the message's lines begin with
  uint64_t time_field = 0;
  uint64_t value_field = 0;
};

class ReaderArduPilotTXT : public Reader {
 public:
  explicit ReaderArduPilotTXT(std::filesystem::path source);
  ~ReaderArduPilotTXT() override;

  // Reads the declarations at the head of the log. A log without any offers nothing.
  void scan() override;

  // Throws mirn3::exc::error_t for a file that cannot be opened and for an unknown name.
  void load(rto_t& request) override;

  void forget() noexcept override;

  std::map<std::string, TextMessage> messages;                   // by name
  std::unordered_map<std::string, TextFieldLocation> locations;  // by full name

 private:
  struct Learned;

  std::shared_ptr<Learned> learn();

  std::vector<std::string> offered_;  // names of the offered messages, ascending
  Kept<Learned> kept_;
};

}  // namespace mirn2::rd
