// Configuration values in the store: one row a value, with the type it was given.
#include "runtime/config.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <string>

#include "runtime/exc.h"
#include "runtime/store.h"
#include "runtime/str.h"

namespace mirn3::config {

namespace {

template <typename Value>
void store_value(std::string_view group, std::string_view key, tag_t type, Value value) {
  const std::string lower_group = str::to_lower(group);
  const std::string lower_key = str::to_lower(key);
  store::Session session(store::Session::Absent::create);
  store::Statement insert(
      session.database(),
      "INSERT INTO config (grp, key, type, value) VALUES (?1, ?2, ?3, ?4) "
      "ON CONFLICT (grp, key) DO UPDATE SET type = excluded.type, value = excluded.value");
  insert.bind(1, lower_group).bind(2, lower_key).bind(3, static_cast<int64_t>(type)).bind(4, value).run();
}

}  // namespace

var_t get(std::string_view group, std::string_view key) {
  const std::string lower_group = str::to_lower(group);
  const std::string lower_key = str::to_lower(key);
  store::Session session(store::Session::Absent::leave);
  if (!session.is_open()) return {};
  store::Statement query(session.database(), "SELECT type, value FROM config WHERE grp = ?1 AND key = ?2");
  if (!query.bind(1, lower_group).bind(2, lower_key).step()) return {};
  switch (static_cast<tag_t>(query.integer(0))) {
    case tag_t::boolean:
      return var_t::of(query.integer(1) != 0);
    case tag_t::int32:
      return var_t::of(static_cast<int32_t>(query.integer(1)));
    case tag_t::int64:
      return var_t::of(query.integer(1));
    case tag_t::float64:  // the store keeps NaN as NULL
      return var_t::of(query.is_null(1) ? std::numeric_limits<double>::quiet_NaN() : query.real(1));
    case tag_t::text:
      return var_t::of(std::string(query.text(1)).c_str());
    default:
      return {};
  }
}

void set(std::string_view group, std::string_view key, std::string_view value) {
  if (value.find('\0') != std::string_view::npos) {
    throw exc::error_t(fmt::format("The value of '{:s}' holds a zero character: remove it", key));
  }
  store_value(group, key, tag_t::text, value);
}

void set(std::string_view group, std::string_view key, int32_t value) {
  store_value(group, key, tag_t::int32, int64_t{value});
}

void set(std::string_view group, std::string_view key, int64_t value) {
  store_value(group, key, tag_t::int64, value);
}

void set(std::string_view group, std::string_view key, double value) {
  store_value(group, key, tag_t::float64, value);
}

void set(std::string_view group, std::string_view key, bool value) {
  store_value(group, key, tag_t::boolean, int64_t{value});
}

}  // namespace mirn3::config
