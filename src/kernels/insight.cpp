// Finds the steps of a signal that precede every occurrence of an event by the same time.
#include "kernels/insight.h"

#include <algorithm>
#include <cstddef>

namespace mirn2::kernels {

namespace {

using Span = std::span<const double>;

size_t first_not_before(Span t, double time) {
  return static_cast<size_t>(std::lower_bound(t.begin(), t.end(), time) - t.begin());
}

// The first sample not before a time that only ever goes back: found once, then moved.
class Cursor {
 public:
  size_t move_back(Span t, double time) {
    if (!placed_) {
      at_ = first_not_before(t, time);
      placed_ = true;
    } else {
      while (at_ > 0 && !(t[at_ - 1] < time)) --at_;
    }
    return at_;
  }

 private:
  size_t at_ = 0;
  bool placed_ = false;
};

enum class Outcome { met, dropped, search_ends };

class Search {
 public:
  Search(Span t, Span v, Span events, double window)
      : t_(t), v_(v), events_(events), window_(window), cursors_(events.size()) {}

  std::vector<Precursor> run() {
    std::vector<Precursor> found;
    if (t_.empty()) return found;
    const size_t at_event = std::min(first_not_before(t_, events_[0]), t_.size() - 1);
    for (size_t k = 1; k <= at_event; ++k) {
      const size_t j = at_event - k;
      const double lead = events_[0] - t_[j];
      if (lead >= window_) break;
      const bool falls = v_[j] > v_[j + 1];
      if (!falls && !(v_[j + 1] > v_[j])) continue;
      const Precursor candidate{lead, v_[j], falls};
      const Outcome outcome = at_later_events(candidate);
      if (outcome == Outcome::search_ends) break;
      if (outcome == Outcome::met) found.push_back(candidate);
    }
    return found;
  }

 private:
  Outcome at_later_events(const Precursor& candidate) {
    for (size_t m = 1; m < events_.size(); ++m) {
      // The lead grows from candidate to candidate, so each event's time only goes back.
      const size_t found = cursors_[m].move_back(t_, events_[m] - candidate.lead);
      const size_t idx = std::min(found, t_.size() - 1);
      if (events_[m] - t_[idx] >= window_) return Outcome::search_ends;
      if (idx + 1 == t_.size()) return Outcome::dropped;
      const double h = candidate.threshold;
      const double a = v_[idx];
      const double b = v_[idx + 1];
      if (!(candidate.falls ? h > b && a >= h : b > h && h >= a)) return Outcome::dropped;
    }
    return Outcome::met;
  }

  Span t_;
  Span v_;
  Span events_;
  double window_;
  std::vector<Cursor> cursors_;
};

}  // namespace

std::vector<double> rising_edges(Span t, Span y) {
  std::vector<double> edges;
  for (size_t k = 1; k < y.size(); ++k) {
    if (y[k - 1] == 0.0 && y[k] != 0.0) edges.push_back(t[k]);
  }
  return edges;
}

std::vector<Precursor> find_precursors(Span t, Span v, Span events, double window) {
  return Search(t, v, events, window).run();
}

}  // namespace mirn2::kernels
