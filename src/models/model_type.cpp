// The Python type Model, over the block-model library.
#include "models/model_type.h"

#include "runtime/python.h"

// After the runtime's header: the interpreter's macros must not rename the table's entries.
#include <structmember.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "blocks/plexo.h"
#include "models/meta_code.h"
#include "models/property_value.h"
#include "objects/row.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/str.h"
#include "runtime/utc.h"

namespace mirn2 {

namespace {

constexpr uint64_t initial_flags = 9;

struct Diagram {
  std::shared_ptr<plexo::PropertiesModel> links = std::make_shared<plexo::PropertiesModel>();
  std::shared_ptr<plexo::IExecModel> exec = plexo::create_empty_exec_model();
  std::shared_ptr<plexo::IMetaModel> meta = plexo::create_empty_meta_model(links);
  std::string path;  // of the file that it was loaded from
};

struct ModelObject {
  PyObject_HEAD PyObject* dict;  // __dict__
  uint64_t flags;
  Diagram* diagram;
  bool is_in_use;
};

ModelObject* self_of(PyObject* self) { return reinterpret_cast<ModelObject*>(self); }

// A model is used by one call at a time. Others can come in between, from another thread while the
// interpreter lock is released, or from an expression or a signal handler.
class Use {
 public:
  explicit Use(PyObject* self) : model_(self_of(self)) {
    if (model_->is_in_use) {
      fail(PyExc_RuntimeError, "This kvalo.Model is busy: wait until the call that uses it has ended");
    }
    model_->is_in_use = true;
  }
  ~Use() { model_->is_in_use = false; }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

  Diagram& diagram() const noexcept { return *model_->diagram; }
  plexo::IMetaModel& meta() const noexcept { return *model_->diagram->meta; }

 private:
  ModelObject* model_;
};

// ---- life and death ----

PyObject* model_new(PyTypeObject* type, PyObject*, PyObject*) {
  return guard(PyExc_Exception, [&] {
    Ref object = checked(type->tp_alloc(type, 0));
    self_of(object.get())->flags = initial_flags;
    self_of(object.get())->diagram = new Diagram;
    return object.release();
  });
}

int load_into(Diagram& diagram, const std::string& path) {
  return without_gil([&] { return plexo::json::load(diagram.meta.get(), path); });
}

void add_top_block(plexo::IMetaModel& meta) {
  const uint64_t id = meta.add(plexo::factory::create("subsys"), 0);
  meta.block(id)->set_name("mainsys");
}

int model_init(PyObject* self, PyObject* args, PyObject* keywords) {
  const auto work = [&] {
    if (PyTuple_GET_SIZE(args) > 1 || (keywords != nullptr && PyDict_GET_SIZE(keywords) > 0)) {
      fail(PyExc_Exception, "Invalid arguments for kvalo.Model");
    }
    const char* path = nullptr;
    if (PyArg_ParseTuple(args, "|s:Model", &path) == 0) throw python_error();
    const Use use(self);
    auto diagram = std::make_unique<Diagram>();
    if (path == nullptr) {
      add_top_block(*diagram->meta);
    } else {
      diagram->path = path;
      if (load_into(*diagram, diagram->path) != plexo::json::loaded) {
        fail(PyExc_Exception, "Error loading file '{:s}'", diagram->path);
      }
    }
    std::swap(*self_of(self)->diagram, *diagram);  // a second __init__ starts over
    return 0;
  };
  return guard(PyExc_Exception, work, -1);
}

int model_traverse(PyObject* object, visitproc visit, void* arg) {
  Py_VISIT(self_of(object)->dict);
  return 0;
}

int model_clear(PyObject* object) {
  Py_CLEAR(self_of(object)->dict);
  return 0;
}

void model_dealloc(PyObject* object) {
  PyObject_GC_UnTrack(object);
  model_clear(object);
  delete self_of(object)->diagram;
  Py_TYPE(object)->tp_free(object);
}

PyObject* model_repr(PyObject* object) {
  return guard(PyExc_Exception, [&] {
    const Use use(object);
    std::string text = fmt::format("{:d} blocks", use.meta().count());
    if (use.meta().tiers() > 1) text += fmt::format(", {:d} tiers", use.meta().tiers());
    if (use.meta().zones() > 1) text += fmt::format(", {:d} zones", use.meta().zones());
    if (!use.diagram().path.empty()) text += ", " + use.diagram().path;
    return to_unicode(text);
  });
}

// ---- parameters ----

[[noreturn]] void refuse_id(uint64_t id) { fail(PyExc_ValueError, "There's no block with id '{:d}'", id); }

constexpr std::array<std::string_view, 7> place_names{"x", "y", "width", "height", "red", "green", "blue"};

std::optional<size_t> place_of(std::string_view key) {
  const auto found = std::ranges::find(place_names, key);
  if (found == place_names.end()) return std::nullopt;
  return static_cast<size_t>(found - place_names.begin());
}

PyObject* model_number(const plexo::IMetaModel& meta, std::string_view key) {
  const plexo::Times times = meta.times();
  if (key == "ti") return PyFloat_FromDouble(times.ti);
  if (key == "tf") return PyFloat_FromDouble(times.tf);
  if (key == "ts") return PyFloat_FromDouble(times.ts);
  if (key == "blocks") return PyLong_FromUnsignedLongLong(meta.count());
  if (key == "links") return PyLong_FromUnsignedLongLong(meta.links());
  if (key == "tiers") return PyLong_FromUnsignedLongLong(meta.tiers());
  if (key == "zones") return PyLong_FromUnsignedLongLong(meta.zones());
  if (key == "failed") return PyLong_FromUnsignedLongLong(meta.failed());
  fail(PyExc_ValueError, "Unknown key '{:s}'", key);
}

bool is_whole(std::string_view key) {
  for (const char* whole :
       {"id", "parent", "inportCount", "outportCount", "lsb", "msb", "portNumber", "seed"}) {
    if (key == whole) return true;
  }
  return false;
}

PyObject* model_get(PyObject* self, const char* key, std::optional<unsigned long long> id) {
  const Use use(self);
  if (!id) return model_number(use.meta(), key);
  plexo::IMetaBlock* block = use.meta().block(*id);
  if (block == nullptr) refuse_id(*id);
  if (const auto place = place_of(key)) return PyFloat_FromDouble(block->place()[*place]);
  const std::optional<double> value = use.meta().number(*id, key);
  if (!value) fail(PyExc_ValueError, "Unknown key '{:s}'", key);
  // The expression of a file may have given anything.
  return is_whole(key) && *value == std::trunc(*value) && std::isfinite(*value) ? PyLong_FromDouble(*value)
                                                                                : PyFloat_FromDouble(*value);
}

using Given = std::optional<float>;
using GivenTime = std::optional<double>;

// The largest finite number marks a value as not given, too.
template <typename Number>
bool is_given(std::optional<Number> value) {
  return value && *value != std::numeric_limits<Number>::max();
}

void model_set(PyObject* self, std::optional<unsigned long long> id, Given x, Given y, Given width,
               Given height, Given red, Given green, Given blue, GivenTime ti, GivenTime tf, GivenTime ts) {
  const Use use(self);
  const Given place[] = {x, y, width, height, red, green, blue};
  plexo::IMetaBlock* block = id ? use.meta().block(*id) : nullptr;
  if (block == nullptr && (id || std::ranges::any_of(place, is_given<float>))) refuse_id(id.value_or(0));
  for (size_t i = 0; i < std::size(place); ++i) {
    if (block != nullptr && is_given(place[i])) block->place()[i] = *place[i];
  }
  const plexo::Times now = use.meta().times();
  use.meta().set_time(is_given(ti) ? *ti : now.ti, is_given(tf) ? *tf : now.tf, is_given(ts) ? *ts : now.ts);
}

// ---- blocks and links ----

// The keywords of create, in their order. All but name and parent are properties, named as the library names
// them.
constexpr Name create_parameters =
    "($self, kind, /, obj=..., name=..., parent=..., inportCount=..., outportCount=..., bp1=..., bp2=..., "
    "coeffA=..., coeffB=..., expression=..., fall=..., finalValue=..., frequency=..., initialValue=..., "
    "lsb=..., max=..., msb=..., min=..., operator=..., out=..., phase=..., portNumber=..., rise=..., "
    "seed=..., stepTime=..., target=..., type=..., timeOff=..., timeOn=..., valueOff=..., valueOn=..., "
    "path=...)";
constexpr Name create_format = "s|OsKIIOOdddddddIdIdsOdIdIdssdddds";
using CreateSignature = signature::Signature<"create", create_parameters, create_format>;

// What create was given: the properties, and where the block goes.
struct Creation {
  std::shared_ptr<plexo::PropertiesBlock> properties = std::make_shared<plexo::PropertiesBlock>();
  uint64_t parent = 0;

  // A keyword's value, by its type.
  void take(std::string_view keyword, PyObject* value) { set(keyword, property_value(value, keyword)); }
  void take(std::string_view keyword, double value) {
    if (value != std::numeric_limits<double>::max()) set(keyword, value);
  }
  void take(std::string_view keyword, unsigned int value) {
    if (value != std::numeric_limits<unsigned int>::max()) set(keyword, static_cast<double>(value));
  }
  void take(std::string_view, unsigned long long value) { parent = value; }
  void take(std::string_view keyword, const char* value) {
    if (keyword == "name") {
      properties->name = value;
    } else {
      set(keyword, std::string(value));
    }
  }

 private:
  void set(std::string_view keyword, plexo::value_t value) {
    properties->set(*plexo::property_named(keyword), std::move(value));
  }
};

uint64_t add_block(PyObject* self, const char* kind, const Creation& creation) {
  const Use use(self);
  try {
    std::unique_ptr<plexo::IMetaBlock> block = plexo::factory::create(kind, creation.properties);
    if (block == nullptr) fail(PyExc_ValueError, "Unknown type '{:s}'", kind);
    return without_gil([&] { return use.meta().add(std::move(block), creation.parent); });
  } catch (const mirn3::exc::error_t& error) {
    throw script_error(error.code() == 0 ? PyExc_ValueError : PyExc_Exception, error.what());
  }
}

// The implementation of create takes one value for each letter after "|".
template <typename Indexes>
struct Create;
template <size_t... i>
struct Create<std::index_sequence<i...>> {
  template <size_t keyword>
  using Value =
      std::optional<typename signature::Letter<CreateSignature::letters.letters[keyword + 1]>::Passed>;

  static uint64_t run(PyObject* self, const char* kind, Value<i>... values) {
    static constexpr std::string_view keywords[] = {CreateSignature::keywords[i + 1]...};
    Creation creation;
    (..., (values ? creation.take(keywords[i], *values) : void()));
    return add_block(self, kind, creation);
  }
};
constexpr auto* model_create = Create<std::make_index_sequence<CreateSignature::letters.count - 1>>::run;

int16_t port(int number) {
  return number >= 1 && number <= std::numeric_limits<int16_t>::max() ? static_cast<int16_t>(number)
                                                                      : int16_t{0};
}

void model_link(PyObject* self, unsigned long long from, unsigned long long to, int port_from, int port_to,
                const char* name) {
  if (from == 0) fail(PyExc_ValueError, "Cannot link from block id 0");
  if (to == 0) fail(PyExc_ValueError, "Cannot link to block id 0");
  const Use use(self);
  use.diagram().links->insert_link(from, to, port(port_from), port(port_to), name);
}

PyObject* model_load(PyObject* self, const char* path) {
  const Use use(self);
  return PyLong_FromLong(load_into(use.diagram(), path));
}

// ---- checks, code and runs ----

// Takes the interpreter lock back for the model's expressions.
void check(const Use& use) {
  require_good(without_gil([&] { return use.meta().meta_process(0); }));
}

void model_validate(PyObject* self) { check(Use(self)); }

using Generator = int(std::string_view path, plexo::IMetaModel* model);

Generator* generator_of(const char* language) {
  const std::string name = mirn3::str::to_lower(language);
  if (name == "c") return plexo::coder_c::generate_code;
  if (name == "python") return plexo::coder_py::generate_code;
  fail(PyExc_ValueError, "Language not supported");
}

void model_codegen(PyObject* self, const char* language, const char* path) {
  Generator* const generate = generator_of(language);
  const Use use(self);
  const int failed = without_gil([&] { return generate(path, &use.meta()); });
  if (failed != 0) fail(PyExc_Exception, "Code generation has failed.");
}

// Takes the results away from where the simulation has left them; null with the interpreter's error set.
Ref take_results() noexcept {
  PyObject* const main = PyImport_AddModule("__main__");
  Ref results = Ref::steal(main != nullptr ? PyObject_GetAttrString(main, "mainsys") : nullptr);
  if (results.get() == nullptr || PyObject_DelAttrString(main, "mainsys") < 0) return Ref();
  return results;
}

Ref simulate(Diagram& diagram) {
  constexpr int interrupted = 2;
  Ref results;
  const int failed = without_gil([&] {
    if (!diagram.meta->build(*diagram.exec)) return -1;
    return diagram.exec->run([&results] { results = take_results(); });
  });
  if (failed == interrupted || (failed == 0 && results.get() == nullptr)) throw python_error();
  if (failed == 0) return results;
  if (PyErr_Occurred() != nullptr) mirn3::log::write(mirn3::log::warning, mirn3::python::take_error());
  fail(PyExc_Exception, "Unknown error during execution");
}

Ref model_run(PyObject* self) {
  const Use use(self);
  const mirn3::utc::Timer timer("run", use.diagram().path.empty() ? "mainsys" : use.diagram().path);
  check(use);
  mirn3::log::write(mirn3::log::warning, "Meta-processing was executed successfully");
  Ref results = simulate(use.diagram());
  mirn3::log::write(mirn3::log::warning, "Simulation was executed successfully");
  return results;
}

// ---- tables ----

constexpr Frame plain{.failures = &PyExc_Exception};

PyMethodDef model_methods[] = {
    row<"get", "($self, key, id=...)", "s|K", "Get model or block parameters", model_get>(),
    row<"set",
        "($self, id=..., x=..., y=..., width=..., height=..., red=..., green=..., blue=..., ti=..., tf=..., "
        "ts=...)",
        "|Kfffffffddd", "Set model or block parameters", model_set>(),
    row<"create", create_parameters, create_format, "Create blocks", model_create>(),
    row<"link", "($self, blockFrom, blockTo, portFrom, portTo, name='')", "KKii|s", "Link blocks",
        model_link>(),
    row<"load", "($self, path, /)", "s", "Load model from file", model_load, plain>(),
    row<"codegen", "($self, lang, path)", "ss", "Generate code from model", model_codegen, plain>(),
    row<"run", "($self, /)", "", "Run simulation", model_run, plain>(),
    row<"validate", "($self, /)", "", "Validate model", model_validate, plain>(),
    {nullptr, nullptr, 0, nullptr},
};

PyMemberDef model_members[] = {
    {"flags", T_ULONGLONG, offsetof(ModelObject, flags), 0, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

}  // namespace

PyTypeObject ModelType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.Model",
    .tp_basicsize = sizeof(ModelObject),
    .tp_dealloc = model_dealloc,
    .tp_repr = model_repr,
    .tp_getattro = PyObject_GenericGetAttr,
    .tp_setattro = PyObject_GenericSetAttr,
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC,
    .tp_doc = signature::docstring<"Model", "(path=..., /)", "Kvalo model object">.data(),
    .tp_traverse = model_traverse,
    .tp_clear = model_clear,
    .tp_methods = model_methods,
    .tp_members = model_members,
    .tp_getset = instance_dict_getset,
    .tp_dictoffset = offsetof(ModelObject, dict),
    .tp_init = model_init,
    .tp_new = model_new,
};

}  // namespace mirn2
