// Script functions that set, reset and close what the host shows.
#include "module/display_functions.h"

#include <algorithm>

#include "hostlink/send.h"
#include "kvalo/records.h"
#include "readers/reader.h"
#include "runtime/str.h"

namespace mirn2::fn {

namespace {

namespace ilc = mirn3::ilc;
using mirn3::var_t;

void send_parameter(const char* message, const char* parameter, var_t first = {}, var_t second = {}) {
  hostlink::send<dto_misc_t>({message}, [&](dto_misc_t& record) {
    record.key = ilc::name_hash(parameter);
    record.values[0] = std::move(first);
    record.values[1] = std::move(second);
  });
}

// ---- set: one function for each attribute ----

constexpr const char* set_name = "misc_set";

double number_at(Items items, size_t i) {
  return number_argument(items[i],
                         i == 1 ? "Second argument must be a number" : "Third argument must be a number");
}

void set_tab(Items items) {
  if (!PyLong_Check(items[1])) fail(PyExc_TypeError, "Second argument must be an integer");
  int overflow = 0;
  const long tab = PyLong_AsLongAndOverflow(items[1], &overflow);
  if (overflow != 0 || tab < 1 || tab > 4) {
    fail(PyExc_ValueError, "Second argument must be an integer from 1 to 4");
  }
  send_parameter(set_name, "tab", var_t::of(static_cast<int32_t>(tab)));
}

void set_time_format(Items items) {
  if (!PyUnicode_Check(items[1])) fail(PyExc_TypeError, "Second argument must be a string");
  const std::string name = mirn3::str::to_lower(text_argument(items[1]));
  const uint32_t hash = ilc::name_hash(name.c_str());
  const auto& known = ilc::time_format_table;
  if (std::ranges::find(known, hash, &ilc::time_format_t::hash) == std::end(known)) {
    std::string names;
    for (const auto& format : known)
      names += fmt::format("{:s}'{:s}'", names.empty() ? "" : ", ", format.name);
    rd::warn(fmt::format("'{:s}' is not a known time format, so a host may ignore it; known are {:s}", name,
                         names));
  }
  send_parameter(set_name, "timeformat", var_t::of(hash));
}

void set_time_limits(Items items) {
  require_count(static_cast<Py_ssize_t>(items.size()), 3, set_name);
  const double from = number_at(items, 1);
  const double to = number_at(items, 2);
  if (!(from < to)) fail(PyExc_ValueError, "Initial time must be less than final time");
  send_parameter(set_name, "timelimits", var_t::of(from), var_t::of(to));
}

void set_global_time(Items items) { send_parameter(set_name, "globaltime", var_t::of(number_at(items, 1))); }

struct Attribute {
  std::string_view name;
  void (*set)(Items items);
};
constexpr Attribute attributes[] = {
    {"tab", set_tab},          {"timeformat", set_time_format}, {"timelimits", set_time_limits},
    {"zoom", set_time_limits}, {"globaltime", set_global_time},
};

void set(Items items) {
  if (items.size() < 2) {
    fail(PyExc_ValueError, "Function '{:s}' takes at least 2 arguments ({:d} given)", set_name, items.size());
  }
  if (!PyUnicode_Check(items[0])) fail(PyExc_TypeError, "First argument must be a string");
  const std::string name = mirn3::str::to_lower(text_argument(items[0]));
  const auto found = std::ranges::find(attributes, name, &Attribute::name);
  if (found == std::end(attributes)) fail(PyExc_ValueError, "Unknown attribute");
  found->set(items);
}

// ---- the others ----

void bookmark(double tini, double tend) {
  send_parameter("misc_bookmark", "bookmark", var_t::of(std::min(tini, tend)),
                 var_t::of(std::max(tini, tend)));
}

void reset() { send_parameter("misc_reset", "all"); }

void close(const char* what, unsigned long long id) {
  const std::string kind = mirn3::str::to_lower(what);
  if (kind != "all" && kind != "pages" && kind != "charts") {
    fail(PyExc_ValueError, "Argument 'what' must be 'all', 'pages' or 'charts'");
  }
  if (id != 0 && kind == "all") {
    fail(PyExc_ValueError, "Argument 'id' needs what='pages' or what='charts', to tell what it is the id of");
  }
  send_parameter("misc_close", kind.c_str(), id != 0 ? var_t::of(static_cast<uint64_t>(id)) : var_t());
}

}  // namespace

Rows display_rows() {
  static const PyMethodDef rows[] = {
      row<"bookmark", "(tini, tend)", "dd", "Insert bookmark in the horizontal scrollbar", bookmark>(),
      row<"close", "(what='all', id=0)", "|sK", "Close pages or charts", close, Frame{.online = "close"}>(),
      row<"reset", "()", "", "Reset global parameters", reset, Frame{.online = "reset"}>(),
      row<"set", "(attribute, value, value2=..., /)", "*", "Set global parameters", set,
          Frame{.online = "misc_set"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
