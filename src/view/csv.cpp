// Merges the series of a chart row by row.
#include "view/csv.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

namespace kvalo_view {

namespace {

constexpr size_t piece = 64 * 1024;

std::string quoted(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string result = "\"";
  for (const char c : text) result.append(c == '"' ? 2 : 1, c);
  return result + '"';
}

}  // namespace

Csv::Csv(std::shared_ptr<const Chart> chart, Range times) : chart_(std::move(chart)), times_(times) {
  for (const auto& series : chart_->series) {
    const Data& data = *series->data;
    const Part part = data.pyramid().ascends() ? part_of(data.x(), times_) : Part{0, data.size()};
    cursors_.push_back({&data, part.first, part.last});
  }
}

std::string Csv::next() {
  std::string out;
  if (!has_title_) {
    out = "time";
    for (const auto& series : chart_->series) out += ',' + quoted(series->name);
    out += "\r\n";
    has_title_ = true;
  }
  while (out.size() < piece) {
    double t = std::numeric_limits<double>::infinity();
    bool any = false;
    for (Cursor& cursor : cursors_) {
      while (cursor.at < cursor.end && std::isnan(cursor.data->x()[cursor.at])) ++cursor.at;
      if (cursor.at == cursor.end) continue;
      t = std::min(t, cursor.data->x()[cursor.at]);
      any = true;
    }
    if (!any) break;
    const bool inside = t >= times_.lo && t <= times_.hi;
    if (inside) fmt::format_to(std::back_inserter(out), "{}", t);
    for (Cursor& cursor : cursors_) {
      const bool here = cursor.at < cursor.end && cursor.data->x()[cursor.at] == t;
      if (inside) out += ',';
      if (inside && here) fmt::format_to(std::back_inserter(out), "{}", cursor.data->y()[cursor.at]);
      if (here) ++cursor.at;
    }
    if (inside) out += "\r\n";
  }
  return out;
}

}  // namespace kvalo_view
