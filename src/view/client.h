// What one page wants and what it has got: decides what its next batch holds. No sockets here.
//
// At most one batch is on the way until the page acknowledges it. Of each chart only the newest view, probe
// and statistics are remembered, so a slow page costs nothing but waiting.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "view/texts.h"

namespace kvalo_view {

using Clock = std::chrono::steady_clock;

// What goes into one batch.
struct Batch {
  struct Question {
    uint32_t chart;
    uint32_t seq;
    Range at;  // probe: lo
  };
  struct Wanted {
    uint32_t chart;
    View view;
    bool has_view;
    bool has_overview;
  };

  uint32_t number = 0;
  std::shared_ptr<const State> state;
  bool has_state = false;
  std::vector<Question> probes, statistics;
  std::vector<Wanted> views;
};

struct Frame {
  bool is_text;
  std::string bytes;
};

struct Answer {
  std::vector<Frame> frames;
  std::vector<uint32_t> late;  // charts whose views took too long to come first; they are asked for again
  std::optional<uint64_t> state_changes;  // Views::changes() when the state was written, if it was
  uint64_t changes = 0;                   // and at the end
};

// Computes a batch. Views that are not begun within the time are left for the next one.
Answer answer(const Batch& batch, Views& views, const StateText& about, std::chrono::milliseconds time);

class Client {
 public:
  static constexpr size_t frame_size = 48;
  static constexpr auto least_interval = std::chrono::milliseconds(33);  // between batches
  static constexpr auto overview_interval = std::chrono::seconds(1);

  // Takes a request in. False for one that no page sends.
  bool take(std::string_view frame, const State& state);

  // The next batch, if one may be sent now and there is anything to send.
  std::optional<Batch> next(std::shared_ptr<const State> state, uint64_t changes, Clock::time_point now);
  // When to ask again if nothing happens until then.
  std::optional<Clock::time_point> later() const { return later_; }
  // What became of the batch.
  void answered(const Answer& answer);

 private:
  struct Chart {
    View view;
    bool is_pending = false;
    std::vector<uint32_t> versions;           // of the series as they were sent
    std::vector<uint32_t> overview_versions;  // likewise
    Clock::time_point overview_at;
    std::optional<Batch::Question> probe, statistics;
    Range span{View::nan, View::nan};
    bool has_view = false;
  };

  std::map<uint32_t, Chart> charts_;  // by key
  bool is_visible_ = true;
  bool is_waiting_ = false;  // a batch is on its way, or not acknowledged
  uint32_t batch_ = 0;
  Clock::time_point sent_at_{};
  uint64_t state_version_ = ~uint64_t{0};
  uint64_t changes_ = 0;
  std::optional<Clock::time_point> later_;
};

}  // namespace kvalo_view
