// Script functions get_config and set_config: stored settings and those of the host's window.
#include "module/config_functions.h"

#include "hostlink/send.h"
#include "runtime/config.h"
#include "runtime/str.h"

namespace mirn2::fn {

namespace {

namespace config = mirn3::config;
using mirn3::tag_t;
using mirn3::var_t;

PyObject* to_python(const var_t& stored) {
  const auto& value = stored.value;
  switch (static_cast<tag_t>(stored.tag)) {
    case tag_t::boolean:
      return PyBool_FromLong(value.boolean);
    case tag_t::int8:
      return PyLong_FromLong(value.int8);
    case tag_t::uint8:
      return PyLong_FromLong(value.uint8);
    case tag_t::int16:
      return PyLong_FromLong(value.int16);
    case tag_t::uint16:
      return PyLong_FromLong(value.uint16);
    case tag_t::int32:
      return PyLong_FromLong(value.int32);
    case tag_t::uint32:
      return PyLong_FromUnsignedLong(value.uint32);
    case tag_t::int64:
      return PyLong_FromLongLong(value.int64);
    case tag_t::uint64:
      return PyLong_FromUnsignedLongLong(value.uint64);
    case tag_t::float32:
      return PyFloat_FromDouble(static_cast<double>(value.float32));
    case tag_t::float64:
      return PyFloat_FromDouble(value.float64);
    case tag_t::text:
      return to_unicode(value.text);
    case tag_t::none:
      break;
  }
  Py_RETURN_NONE;
}

void store(std::string_view group, std::string_view key, PyObject* value) {
  if (PyUnicode_Check(value)) {
    config::set(group, key, std::string_view(text_argument(value)));
  } else if (PyBool_Check(value)) {
    config::set(group, key, value == Py_True);
  } else if (PyLong_Check(value)) {
    const int64_t number = PyLong_AsLongLong(value);
    if (number == -1) check_python();
    const auto narrow = static_cast<int32_t>(number);
    if (narrow == number) {
      config::set(group, key, narrow);
    } else {
      config::set(group, key, number);
    }
  } else if (PyFloat_Check(value)) {
    config::set(group, key, PyFloat_AS_DOUBLE(value));
  } else {
    fail(PyExc_TypeError, "A setting is a text, a boolean, an integer or a float, not '{:s}'",
         type_name(Py_TYPE(value)));
  }
}

// Settings that the host keeps: which parameter of its window or theme a group and key stand for.
struct HostSetting {
  std::string_view group;
  std::string_view key;
  const char* parameter;
};
constexpr HostSetting host_settings[] = {
    {"window", "x", "win.x"},           {"window", "y", "win.y"},        {"window", "width", "win.width"},
    {"window", "height", "win.height"}, {"theme", "file", "theme.file"}, {"theme", "live", "theme.live"},
};

var_t host_value(std::string_view group, PyObject* value) {
  if (group == "theme") {
    return var_t::of(mirn3::str::to_lower(to_text(value)) == "dark" ? int32_t{0} : int32_t{1});
  }
  const double number = PyFloat_AsDouble(value);
  if (number == -1.0) check_python();
  return var_t::of(number);
}

PyObject* get_config(const char* key, const char* group) { return to_python(config::get(group, key)); }

void set_config(PyObject* value, const char* key_argument, const char* group_argument) {
  const std::string group = mirn3::str::to_lower(group_argument);
  const std::string key = mirn3::str::to_lower(key_argument);
  for (const HostSetting& setting : host_settings) {
    if (setting.group != group || setting.key != key) continue;
    hostlink::send_info(setting.parameter, host_value(group, value));
    return;
  }
  store(group, key, value);
}

}  // namespace

Rows config_rows() {
  static const PyMethodDef rows[] = {
      row<"get_config", "(key, group='general')", "s|s", "Get configuration parameter", get_config>(),
      row<"set_config", "(value, key, group='general')", "Os|s", "Set configuration parameter", set_config>(),
  };
  return rows;
}

}  // namespace mirn2::fn
