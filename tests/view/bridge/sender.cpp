// Sends chart messages to a handler, as a script would, for bridge_test.py.
#include <cstring>
#include <memory>
#include <utility>

#include "kvalo/records.h"

namespace {

mirn3::shared_vector<double> shared(const double* values, size_t n) {
  mirn3::shared_vector<double> result;
  result.resize_for_overwrite(n);
  if (n != 0) std::memcpy(const_cast<double*>(std::as_const(result).data()), values, n * sizeof *values);
  return result;
}

template <typename Record>
void send(void* handler, const char* name, std::shared_ptr<Record> record) {
  (*static_cast<mirn3::ilc::handler_t*>(handler))(std::make_shared<mirn3::ilc::msgdata_t>(
      mirn3::ilc::msgdata_t{mirn3::ilc::name_hash(name), std::move(record)}));
}

}  // namespace

extern "C" {

KVALO_EXPORT void send_chart(void* handler, const char* kind, uint64_t id, uint64_t series, const char* name,
                             const double* x, const double* y, size_t n) {
  auto record = std::make_shared<dto_chart_t>();
  record->id = id;
  record->series_id = series;
  record->name = name;
  record->x = shared(x, n);
  record->y = shared(y, n);
  send(handler, kind, std::move(record));
}

KVALO_EXPORT void send_save(void* handler, uint64_t id, const char* path) {
  auto record = std::make_shared<dto_chart_save_t>();
  record->id = id;
  std::strncpy(record->path, path, sizeof record->path - 1);
  send(handler, "chart_save", std::move(record));
}
}
