// What a host (the program that draws for a script) sees of the module: the message it is handed,
// the handler it installs with kvalo.callback, and the records of errors, exit and settings. records.h has
// those of charts, pages and annotations, and the tables of all messages, parameters and fields.
//
// Install a handler: keep a mirn3::ilc::handler_t alive, wrap its address in a capsule without a
// name, call kvalo.callback(capsule). The module copies the handler. Messages come synchronously on
// the script's thread; a host may keep the shared record and read it later on any thread.
//
// The same series sent again to the same chart id replaces its curve: that is how live data moves.
//
// docs/host-messages.md lists every message with its record.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "kvalo/export.h"

namespace mirn3 {

// The runtime's tagged variant. Text (tag 14) is an owned zero-terminated UTF-8 string; the other
// types lie in place. The numbers are shared with hosts and with the configuration store.
enum class tag_t : uint8_t {
  none = 0,
  boolean = 1,
  int8 = 3,
  uint8 = 4,
  int16 = 5,
  uint16 = 6,
  int32 = 7,
  uint32 = 8,
  int64 = 9,
  uint64 = 10,
  float32 = 11,
  float64 = 12,
  text = 14,
};

struct MIRN3_API var_t {
  union {
    bool boolean;
    int8_t int8;
    uint8_t uint8;
    int16_t int16;
    uint16_t uint16;
    int32_t int32;
    uint32_t uint32;
    int64_t int64;
    uint64_t uint64;
    float float32;
    double float64;
    char* text;
  } value{.uint64 = 0};
  uint8_t tag = 0;

  var_t() = default;
  var_t(const var_t& other);
  var_t(var_t&& other) noexcept;
  var_t& operator=(var_t other) noexcept;
  ~var_t();

  static var_t of(bool v);
  static var_t of(int32_t v);
  static var_t of(uint32_t v);
  static var_t of(int64_t v);
  static var_t of(uint64_t v);
  static var_t of(double v);
  static var_t of(const char* v);
};
static_assert(sizeof(var_t) == 16);

namespace ilc {

struct msgdata_t {
  uint32_t id;                 // hash of the message's name
  std::shared_ptr<void> data;  // the message's dto_* record
};

using handler_t = std::function<void(std::shared_ptr<msgdata_t>)>;

// The id of a message or parameter name: h = 5381, then h = (h * 33) ^ c for every character, with c
// a signed 8-bit value widened to 32 bits, in unsigned 32-bit arithmetic.
constexpr uint32_t name_hash(const char* name) {
  uint32_t h = 5381;
  for (; *name != '\0'; ++name) {
    h = (h * 33u) ^ static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(*name)));
  }
  return h;
}

}  // namespace ilc
}  // namespace mirn3

// "app_error". A text of 512 bytes or more is cut and then has no terminating zero.
struct dto_error_t {
  char text[512];
};

// "app_exit". All zero.
struct dto_exit_t {
  char text[512];
};

// Settings and small commands: "app_info", "app_selfie", "misc_set", "misc_reset", "misc_close",
// "misc_bookmark".
struct dto_misc_t {
  uint32_t key;            // name_hash of the parameter's name
  mirn3::var_t values[2];  // unused ones stay empty
  char text[1024];
};
