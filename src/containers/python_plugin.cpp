// Finds, loads and calls plug-ins written in Python.
#include "containers/python_plugin.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <vector>

#include "objects/array.h"
#include "objects/frame.h"
#include "readers/name_tree.h"
#include "runtime/config.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/python.h"
#include "runtime/sys.h"
#include "runtime/sys_plugin.h"

using mirn2::Ref;
namespace fs = std::filesystem;
namespace sys = mirn3::sys;

namespace {

// Loads a module from its file under a name that no other module has. The module is known to sys.modules,
// as some libraries ask for it; its folder is on sys.path only while it is being executed. No bytecode is
// kept: it would be written into the folder and could outlive a quick edit.
constexpr const char* loader_source = R"(
import importlib.machinery
import importlib.util
import os
import sys


class SourceLoader(importlib.machinery.SourceFileLoader):
    def get_code(self, fullname):
        return self.source_to_code(self.get_data(self.path), self.path)


def load(path, number):
    stem = os.path.splitext(os.path.basename(path))[0]
    if path.lower().endswith(".pyd"):
        loader = importlib.machinery.ExtensionFileLoader(f"_kvalo_plugin_{number}.{stem}", path)
    else:
        loader = SourceLoader(f"_kvalo_plugin_{number}_{stem}", path)
    spec = importlib.util.spec_from_file_location(loader.name, path, loader=loader)
    module = importlib.util.module_from_spec(spec)
    folder = os.path.dirname(path)
    sys.modules[spec.name] = module
    sys.path.append(folder)
    try:
        loader.exec_module(module)
    except BaseException:
        sys.modules.pop(spec.name, None)
        raise
    finally:
        if folder in sys.path:
            del sys.path[len(sys.path) - 1 - sys.path[::-1].index(folder)]
    return module
)";

// The pending Python error as text, which is cleared; its traceback goes to the log.
std::string take_error() {
  PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  if (traceback != nullptr) {
    const Ref module = Ref::steal(PyImport_ImportModule("traceback"));
    const Ref lines = Ref::steal(module ? PyObject_CallMethod(module.get(), "format_exception", "OOO", type,
                                                              value != nullptr ? value : Py_None, traceback)
                                        : nullptr);
    const Ref nothing = Ref::steal(PyUnicode_FromString(""));
    const Ref text = Ref::steal(lines && nothing ? PyUnicode_Join(nothing.get(), lines.get()) : nullptr);
    if (text) mirn3::log::write(mirn3::log::warning, mirn2::to_text(text.get()));
    PyErr_Clear();
  }
  PyErr_Restore(type, value, traceback);
  return mirn3::python::take_error();
}

Ref path_text(const fs::path& path) {
  const std::string& text = path.native();
  return mirn2::checked(PyUnicode_DecodeFSDefaultAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
}

// The module's function of this name, or null.
Ref function_of(PyObject* module, const char* name) {
  return Ref::share(PyDict_GetItemString(PyModule_GetDict(module), name));
}

// ---- the modules ----

Ref load_module(const fs::path& file) {
  static PyObject* loader = nullptr;
  static unsigned long number = 0;
  if (loader == nullptr) {
    const Ref names = mirn2::checked(PyDict_New());
    mirn2::checked(PyRun_String(loader_source, Py_file_input, names.get(), names.get()));
    PyObject* function = PyDict_GetItemString(names.get(), "load");
    Py_XINCREF(function);
    loader = function;
  }
  const Ref path = path_text(file);
  return mirn2::checked(PyObject_CallFunction(loader, "Ok", path.get(), ++number));
}

// What is known of a file at the time of its stamp: its module, or why it has none.
struct Known {
  sys::FileStamp stamp;
  Ref module;
  std::string reason;
};

struct Found {
  Ref module;
  std::string reason;
  bool first_time = false;  // the reason was found out just now
};

Found module_of(const fs::path& file) {
  static auto* all = new std::map<fs::path, Known>;  // never destroyed: the interpreter ends earlier
  try {
    const fs::path canonical = fs::canonical(file);
    const sys::FileStamp stamp = sys::file_stamp(canonical);
    if (const auto known = all->find(canonical); known != all->end() && known->second.stamp == stamp) {
      return {Ref::share(known->second.module.get()), known->second.reason, false};
    }
    Found found;
    try {
      found.module = load_module(canonical);
    } catch (const mirn2::python_error&) {
      found.reason = take_error();
      found.first_time = true;
    }
    // If another thread has loaded it meanwhile, that module is used.
    Known& known = (*all)[canonical];
    if (known.module && known.stamp == stamp) return {Ref::share(known.module.get()), {}, false};
    known = {stamp, Ref::share(found.module.get()), found.reason};
    return found;
  } catch (const std::exception& error) {
    return {{}, error.what(), true};
  }
}

std::string refusal(const fs::path& file, std::string_view reason) {
  return fmt::format("Plug-in '{:s}' cannot be loaded: {:s}", file.string(), reason);
}

// Which plug-ins work on which file in this thread. A plug-in at work is not asked about its own file again,
// so it can read the file with a built-in reader.
thread_local std::vector<std::pair<const PyObject*, fs::path>> at_work;

class AtWork {
 public:
  AtWork(const PyObject* module, const fs::path& path) { at_work.emplace_back(module, path); }
  ~AtWork() { at_work.pop_back(); }
  AtWork(const AtWork&) = delete;
  AtWork& operator=(const AtWork&) = delete;
};

bool says_compatible(PyObject* module, const fs::path& path) {
  const Ref function = function_of(module, "is_compatible");
  if (!function ||
      std::ranges::find(at_work, std::pair(static_cast<const PyObject*>(module), path)) != at_work.end()) {
    return false;
  }
  const AtWork working(module, path);
  const Ref text = path_text(path);
  const Ref answer = mirn2::checked(PyObject_CallOneArg(function.get(), text.get()));
  const int is_true = PyObject_IsTrue(answer.get());
  if (is_true < 0) throw mirn2::python_error();
  return is_true == 1;
}

}  // namespace

namespace mirn4::pyd {

Ref plugin_compatible(const fs::path& path) {
  for (const fs::path& file : sys::plugin_files({".py", ".pyd"})) {
    Found found = module_of(file);
    if (!found.module) {
      if (found.first_time) mirn3::log::write(mirn3::log::warning, refusal(file, found.reason));
      continue;
    }
    try {
      if (says_compatible(found.module.get(), path)) return std::move(found.module);
    } catch (const mirn2::python_error&) {
      mirn3::log::write(mirn3::log::warning, fmt::format("Plug-in '{:s}' failed in is_compatible: {:s}",
                                                         file.string(), take_error()));
    }
  }
  return {};
}

Ref plugin_forced(const fs::path& plugin) {
  const fs::path file = sys::find_plugin(plugin);
  if (file.empty()) return {};
  Found found = module_of(file);
  if (!found.module) mirn2::rd::warn(refusal(file, found.reason));
  return std::move(found.module);
}

}  // namespace mirn4::pyd

namespace mirn2::rd {

namespace {

using mirn3::exc::error_t;

constexpr const char* settings_group = "general";
constexpr const char* unset = "empty";

PluginUses& uses() {
  static auto* all = new PluginUses;
  return *all;
}

// Ctrl-C is not a failure of the plug-in.
void let_interruption_pass() {
  if (PyErr_ExceptionMatches(PyExc_KeyboardInterrupt)) throw python_error();
}

// Runs work on Python objects from any thread. An error that the interpreter has set becomes error_t with
// the error's text.
template <typename Work>
auto in_python(Work&& work) {
  const mirn3::python::Lock lock;
  try {
    return work();
  } catch (const python_error&) {
    let_interruption_pass();
    throw error_t(take_error());
  }
}

Ref require_function(PyObject* module, const char* name) {
  Ref function = function_of(module, name);
  if (!function) throw error_t(fmt::format("Plugin does not implement '{:s}'", name));
  return function;
}

// A result that must be a list. The plug-in's own error is reported, then the failure.
Ref require_list(Ref result, const char* name) {
  if (!result) {
    let_interruption_pass();
    if (PyErr_Occurred() != nullptr) warn(take_error());
    throw error_t(fmt::format("API function '{:s}' has returned null", name));
  }
  if (!PyList_Check(result.get())) {
    throw error_t(fmt::format("API function '{:s}' must return a list", name));
  }
  return result;
}

// Item i of such a list as UTF-8.
std::string item_text(PyObject* list, Py_ssize_t i, const char* name) {
  const Ref item = Ref::share(PyList_GET_ITEM(list, i));
  if (!PyUnicode_Check(item.get())) {
    throw error_t(fmt::format("API function '{:s}' must return a list of str; item {:d} is a '{:s}'", name, i,
                              type_name(Py_TYPE(item.get()))));
  }
  const Ref bytes = checked(PyUnicode_AsEncodedString(item.get(), "UTF-8", "strict"));
  return std::string(PyBytes_AS_STRING(bytes.get()), static_cast<size_t>(PyBytes_GET_SIZE(bytes.get())));
}

// A null result of init or load: the plug-in's own error, or else this text.
[[noreturn]] void fail_null(const char* text) {
  let_interruption_pass();
  throw error_t(PyErr_Occurred() != nullptr ? take_error() : text);
}

// ---- samples ----

// A view of an object that offers one row of doubles (a NumPy array, a kvalo.Array, an array.array).
class Doubles {
 public:
  explicit Doubles(PyObject* object) {
    if (!PyObject_CheckBuffer(object)) return;
    if (PyObject_GetBuffer(object, &view_, PyBUF_FORMAT | PyBUF_C_CONTIGUOUS) < 0) {
      PyErr_Clear();  // not contiguous; read item by item then
      return;
    }
    fits_ = view_.ndim == 1 && view_.format != nullptr && std::strcmp(view_.format, "d") == 0;
    if (!fits_) PyBuffer_Release(&view_);
  }
  ~Doubles() {
    if (fits_) PyBuffer_Release(&view_);
  }
  Doubles(const Doubles&) = delete;
  Doubles& operator=(const Doubles&) = delete;

  explicit operator bool() const { return fits_; }
  Samples copy() const {
    Samples samples;
    samples.resize_for_overwrite(static_cast<uint64_t>(view_.shape[0]));
    if (view_.len > 0) std::memcpy(samples.data(), view_.buf, static_cast<size_t>(view_.len));
    return samples;
  }

 private:
  Py_buffer view_{};
  bool fits_ = false;
};

// One axis of a result: its length is known before any item is looked at.
class Axis {
 public:
  Axis(PyObject* tuple, Py_ssize_t i, const char* name)
      : name_(name), object_(Ref::share(PyTuple_GET_ITEM(tuple, i))), doubles_(object_.get()) {
    if (doubles_) return;
    Ref sequence = Ref::steal(PyList_Check(object_.get()) ? Ref::share(object_.get()).release()
                                                          : PySequence_Tuple(object_.get()));
    if (!sequence) {
      PyErr_Clear();
      throw error_t(fmt::format("API function 'load' must return two lists; the {:s} is a '{:s}'", name_,
                                type_name(Py_TYPE(object_.get()))));
    }
    object_ = std::move(sequence);
  }

  Py_ssize_t size() const { return PyObject_Size(object_.get()); }

  Samples samples() const {
    if (doubles_) return doubles_.copy();
    try {
      return samples_from_sequence(object_.get());
    } catch (const python_error&) {
      throw error_t(fmt::format("The {:s} has an element that is not a number: {:s}", name_, take_error()));
    }
  }

 private:
  const char* name_;
  Ref object_;
  Doubles doubles_;
};

// Ends a use: calls terminate and ignores its failures.
void call_terminate(PyObject* module, const std::string& path) noexcept {
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  try {
    if (const Ref function = function_of(module, "terminate")) {
      const Ref text = path_text(path);
      const AtWork working(module, path);
      Ref::steal(PyObject_CallOneArg(function.get(), text.get()));
    } else {
      mirn3::log::write(mirn3::log::error, fmt::format("Plugin '{:s}' does not implement 'terminate'", path));
    }
  } catch (const std::exception&) {
  }
  PyErr_Clear();
  PyErr_Restore(type, value, traceback);
}

PyObject* end_at_exit(PyObject*, PyObject*) {
  end_python_plugins();
  Py_RETURN_NONE;
}

// At exit the interpreter is still whole; later, modules that a plug-in imported may be gone.
void register_exit() {
  static bool registered = false;
  if (registered) return;
  static PyMethodDef method = {"_end_plugins", end_at_exit, METH_NOARGS, nullptr};
  const Ref function = checked(PyCFunction_New(&method, nullptr));
  const Ref module = checked(PyImport_ImportModule("atexit"));
  checked(PyObject_CallMethod(module.get(), "register", "O", function.get()));
  registered = true;
}

}  // namespace

ReaderPluginPYDFile::ReaderPluginPYDFile(fs::path path, Ref module)
    : Reader(std::move(path)), module_(std::move(module)) {
  if (!module_) throw error_t("Error while loading compatible plugin");
  register_exit();
  uses().add(key());
}

ReaderPluginPYDFile::ReaderPluginPYDFile(const fs::path& path)
    : ReaderPluginPYDFile(path, mirn4::pyd::plugin_compatible(path)) {}

ReaderPluginPYDFile::~ReaderPluginPYDFile() {
  const mirn3::python::Lock lock;
  PluginUses::Use last;
  if (uses().remove(key(), last) == PluginUses::Left::none) call_terminate(module_.get(), path_.string());
  module_ = {};
}

PluginUses::Key ReaderPluginPYDFile::key() const { return {module_.get(), path_.string()}; }

void ReaderPluginPYDFile::scan() {
  in_python([&] {
    const AtWork working(module_.get(), path_);
    call_init();
    call_list();
  });
}

// The value of every setting that the plug-in asks for, as a list of str.
Ref ReaderPluginPYDFile::configuration() const {
  const Ref function = require_function(module_.get(), "config_keys");
  const Ref keys = require_list(Ref::steal(PyObject_CallNoArgs(function.get())), "config_keys");
  Ref values = checked(PyList_New(0));
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keys.get()); ++i) {
    const std::string name = item_text(keys.get(), i, "config_keys");
    const mirn3::var_t value = mirn3::config::get(settings_group, name);
    const bool is_text = static_cast<mirn3::tag_t>(value.tag) == mirn3::tag_t::text;
    const Ref text = Ref::steal(to_unicode(is_text ? value.value.text : unset));
    if (PyList_Append(values.get(), text.get()) < 0) throw python_error();
  }
  return values;
}

void ReaderPluginPYDFile::call_init() {
  const Trace trace("call_init");
  if (uses().get(key()).initialised) return;
  const Ref function = require_function(module_.get(), "init");
  const Ref values = configuration();
  const Ref path = path_text(path_);
  const Ref result =
      Ref::steal(PyObject_CallFunctionObjArgs(function.get(), path.get(), values.get(), nullptr));
  if (!result) fail_null("API function 'init' has returned null");
  if (!PyLong_Check(result.get())) throw error_t("API function 'init' must return an integer");
  int overflow = 0;
  const long long code = PyLong_AsLongLongAndOverflow(result.get(), &overflow);
  if (code != 0 || overflow != 0) {
    throw error_t(fmt::format("API function 'init' returned error code {:s}",
                              overflow != 0 ? to_text(result.get()) : std::to_string(code)));
  }
  uses().set(key(), &PluginUses::Use::initialised, true);
}

void ReaderPluginPYDFile::call_list() {
  const Trace trace("call_list");
  const Ref function = require_function(module_.get(), "list_names");
  const Ref path = path_text(path_);
  const Ref list = require_list(Ref::steal(PyObject_CallOneArg(function.get(), path.get())), "list_names");
  if (static_cast<size_t>(PyList_GET_SIZE(list.get())) > NameTree::most_names) {
    throw error_t(fmt::format("The plug-in reports {:d} variables; {:d} are possible",
                              PyList_GET_SIZE(list.get()), NameTree::most_names));
  }
  NameTree names;
  std::unordered_map<std::string, size_t> index;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list.get()); ++i) {
    std::string name = item_text(list.get(), i, "list_names");
    std::string full_name = names.insert(name);
    index[name] = static_cast<size_t>(i);
    if (full_name != name) reported_.try_emplace(std::move(full_name), std::move(name));
  }
  root_.children = names.take();
  index_ = std::move(index);
}

void ReaderPluginPYDFile::load(rto_t& request) {
  std::string name(request.name);
  if (!index_.contains(name)) {
    if (const auto own = reported_.find(name); own != reported_.end()) {
      name = own->second;
    } else if (request.tolerate_unknown) {
      return;
    }
  }
  in_python([&] {
    if (uses().get(key()).readers == 0) {
      throw error_t("The plug-in has been ended, because the program is about to end");
    }
    const AtWork working(module_.get(), path_);
    const Ref function = require_function(module_.get(), "load");
    const Ref path = path_text(path_);
    const Ref variable = Ref::steal(to_unicode(name));
    const Ref result =
        Ref::steal(PyObject_CallFunctionObjArgs(function.get(), path.get(), variable.get(), nullptr));
    if (!result) fail_null("API function 'load' returned null");
    if (!PyTuple_Check(result.get()) || PyTuple_GET_SIZE(result.get()) != 2) {
      throw error_t("API function 'load' must return a tuple of two lists");
    }
    const Axis x(result.get(), 0, "x-axis");
    const Axis y(result.get(), 1, "y-axis");
    const Py_ssize_t nx = x.size();
    const Py_ssize_t ny = y.size();
    if (nx < 1 || ny < 1) {
      throw error_t(fmt::format(
          "Both lists must not be empty (x-axis has {:d} elements, y-axis has {:d} elements)", nx, ny));
    }
    if (nx != ny) {
      throw error_t(fmt::format(
          "Lists sizes do not match (x-axis has {:d} elements, y-axis has {:d} elements)", nx, ny));
    }
    request.x = x.samples();
    request.y = y.samples();
  });
}

void end_python_plugins() noexcept {
  for (const auto& [key, use] : uses().take_all()) {
    call_terminate(static_cast<PyObject*>(const_cast<void*>(key.first)), key.second);
  }
}

}  // namespace mirn2::rd
