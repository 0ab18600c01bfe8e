// Sends what a script would send, for the tests of the view.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kvalo/records.h"
#include "view/store.h"

inline mirn3::shared_vector<double> shared(const std::vector<double>& values) {
  mirn3::shared_vector<double> result;
  result.resize_for_overwrite(values.size());
  std::copy(values.begin(), values.end(), const_cast<double*>(std::as_const(result).data()));
  return result;
}

template <typename Record>
void send(kvalo_view::Store& store, const char* name, const Record& record) {
  store.apply({mirn3::ilc::name_hash(name), std::make_shared<Record>(record)});
}

inline dto_chart_t chart_record(uint64_t id, uint64_t series, const std::vector<double>& x,
                                const std::vector<double>& y) {
  dto_chart_t record;
  record.id = id;
  record.series_id = series;
  record.name = "s" + std::to_string(series);
  record.x = shared(x);
  record.y = shared(y);
  return record;
}

inline void plot(kvalo_view::Store& store, uint64_t id, uint64_t series, const std::vector<double>& x,
                 const std::vector<double>& y, const char* kind = "chart2d_line") {
  send(store, kind, chart_record(id, series, x, y));
}

inline dto_misc_t misc(const char* key, mirn3::var_t a = {}, mirn3::var_t b = {}) {
  dto_misc_t record{};
  record.key = mirn3::ilc::name_hash(key);
  record.values[0] = std::move(a);
  record.values[1] = std::move(b);
  return record;
}
