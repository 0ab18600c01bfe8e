// The JSON messages of docs/view-protocol.md.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "view/views.h"

namespace kvalo_view {

struct StateText {
  std::string_view title;
  bool pictures = false;  // whether the server can draw PNG and SVG
};

std::string state_text(const State& state, const Views& views, uint64_t version, const StateText& about);
std::string values_text(const Chart& chart, uint32_t seq, double t, const std::vector<ValueAt>& values);
std::string statistics_text(const Chart& chart, uint32_t seq, Range times,
                            const std::vector<Statistics>& values);

}  // namespace kvalo_view
