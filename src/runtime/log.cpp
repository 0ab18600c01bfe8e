// The log file: entries are put into their one-line form here, the file and its rotation are spdlog's.
//
// The stream is line buffered: every entry is one write, so that a kill loses none and entries of
// several processes do not mix within a line.
#include "runtime/log.h"

#include <fmt/format.h>
#define SPDLOG_PREVENT_CHILD_FD  // programs that are started do not inherit the file
#include <spdlog/sinks/rotating_file_sink.h>

#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "runtime/lifetime.h"
#include "runtime/str.h"
#include "runtime/sys.h"
#include "runtime/utc.h"

namespace mirn3::log {

namespace {

constexpr size_t longest_file = size_t{5} << 20;
constexpr size_t kept_files = 3;
constexpr int unread = -1;

using Sink = spdlog::sinks::rotating_file_sink_st;

struct State {
  std::mutex mutex;
  std::unique_ptr<Sink> sink;
  bool unwritable = false;  // tried and failed: not tried again until close()
  std::atomic<int> lowest{unread};
};

// Never destroyed: entries may still come from threads that outlive main().
State& state() {
  static State& kept = *new State;
  return kept;
}

int lowest_severity() noexcept {
  int lowest = state().lowest.load(std::memory_order_relaxed);
  if (lowest != unread) return lowest;
  lowest = info;
  if (const char* text = std::getenv("KVALO_LOG_LEVEL")) {
    int given = 0;
    const char* end = text + std::strlen(text);
    const auto parsed = std::from_chars(text, end, given);
    if (parsed.ec == std::errc() && parsed.ptr == end && given >= 0) lowest = given;
  }
  state().lowest.store(lowest, std::memory_order_relaxed);
  return lowest;
}

std::unique_ptr<Sink> open() {
  spdlog::file_event_handlers handlers;
  handlers.after_open = [](const spdlog::filename_t&, std::FILE* stream) {
    std::setvbuf(stream, nullptr, _IOLBF, 1 << 16);
  };
  auto sink = std::make_unique<Sink>(std::filesystem::absolute(sys::state_path() / "kvalo.log").string(),
                                     longest_file, kept_files, false, handlers);
  sink->set_pattern("%v");
  return sink;
}

// The entry as one line of UTF-8: what could break it or disturb a terminal is escaped.
std::string to_line(int severity, std::string_view text) {
  std::string line = utc::now_as_str_02();
  line.reserve(line.size() + text.size() + 16);
  fmt::format_to(std::back_inserter(line), " {} ", severity);
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x80) {
      const size_t length = str::utf8_length(text.substr(i));
      if (length == 0) {
        fmt::format_to(std::back_inserter(line), "\\x{:02x}", byte);
        continue;
      }
      line.append(text, i, length);
      i += length - 1;
    } else if (byte >= 0x20 && byte != 0x7f) {
      line += c;
    } else if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else if (c == '\t') {
      line += "\\t";
    } else {
      fmt::format_to(std::back_inserter(line), "\\x{:02x}", byte);
    }
  }
  return line;
}

}  // namespace

bool enabled(int severity) noexcept { return severity >= lowest_severity(); }

void write(int severity, std::string_view text) noexcept {
  if (!enabled(severity)) return;
  try {
    const std::string line = to_line(severity, text);
    State& s = state();
    const std::lock_guard lock(s.mutex);
    if (s.unwritable) return;
    try {
      if (!s.sink) s.sink = open();
      s.sink->log({"", spdlog::level::info, line});
    } catch (...) {
      s.unwritable = true;
      s.sink.reset();
    }
  } catch (...) {
    // A log that cannot be written must not disturb the work.
  }
}

void close() noexcept {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  s.sink.reset();
  s.unwritable = false;
  s.lowest.store(unread, std::memory_order_relaxed);
}

void before_fork() { state().mutex.lock(); }

void after_fork() { state().mutex.unlock(); }

}  // namespace mirn3::log
