// Expressions and results, with an interpreter that is loaded for these tests alone.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include "blocks/model.h"
#include "runtime/home.h"
#include "runtime/python.h"

// What the interpreter leaves behind at its end is its own; memory of C++ is watched.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libpython3.11";
}
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() {
  return "print_suppressions=0";
}

namespace {

using namespace blocks_test;
namespace python = mirn3::python;

// Stands for the module that takes the results.
constexpr const char* stand_in = R"(
import sys, types, ctypes
kvalo = types.ModuleType("kvalo")
class Result: pass
class TimeSeries:
    def __init__(self, name): self.name = name
def create_array(capsule, count):
    get = ctypes.pythonapi.PyCapsule_GetPointer
    get.restype, get.argtypes = ctypes.c_void_p, [ctypes.py_object, ctypes.c_char_p]
    if kvalo.fails: raise MemoryError
    return list((ctypes.c_double * count).from_address(get(capsule, b"plexo.samples")))
kvalo.Result, kvalo.TimeSeries, kvalo.create_array, kvalo.fails = Result, TimeSeries, create_array, False
sys.modules["kvalo"] = kvalo
ran = []
tau = 0.5
class Half:
    def __float__(self): return 0.5
)";

class BlocksPythonTest : public Home {
 protected:
  static void SetUpTestSuite() {
    library = ::dlopen("libpython3.11.so.1.0", RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) return;
#define FILL_FUNCTION(name, result, arguments) \
  python::table.name = reinterpret_cast<decltype(python::table.name)>(::dlsym(library, #name));
#define FILL_OBJECT(name)  // none is used here
    MIRN3_PYTHON_TABLE(FILL_FUNCTION, FILL_OBJECT)
#undef FILL_FUNCTION
#undef FILL_OBJECT
    reinterpret_cast<void (*)(int)>(::dlsym(library, "Py_InitializeEx"))(0);
    python::wrap().set_up();
    run(stand_in);
  }
  static void TearDownTestSuite() {
    if (library == nullptr) return;
    reinterpret_cast<int (*)()>(::dlsym(library, "Py_FinalizeEx"))();
    python::table = {};
    python::wrap().set_up();
  }
  void SetUp() override {
    Home::SetUp();
    if (library == nullptr) GTEST_SKIP() << "libpython3.11 is not installed";
  }
  static void run(const std::string& code) {
    ASSERT_EQ(python::table.PyRun_SimpleStringFlags(code.c_str(), nullptr), 0) << code;
  }
  int load(Model& model, const std::string& value) {
    const std::string content =
        R"({"format": "kvalo-model", "version": 1, "blocks": [{"id": 2, "kind": "const", "obj": )" + value +
        "}]}";
    return plexo::json::load(model.meta.get(), make("m.json", content).string());
  }
  static inline void* library = nullptr;
};

TEST_F(BlocksPythonTest, ExpressionsOfAScript) {
  const std::tuple<const char*, int, double> cases[] = {
      {"2 * tau", 0, 1},        {"Half()", 0, 0.5},
      {"True", 0, 1},           {"1 if ran == [] else 2", 0, 1},
      {"float('-inf')", 11, 0}, {"1 / 0", 13, 0},
      {"nothing_here", 13, 0},  {"1 +", 13, 0},
      {"'text'", 12, 0},        {"[1, 2]", 12, 0},
      {"None", 12, 0},          {"1j", 12, 0},
      {"10 ** 400", 12, 0},     {"float('nan')", 11, 0}};
  for (const auto& [expression, code, value] : cases) {
    SCOPED_TRACE(expression);
    Model model;
    const uint64_t id = model.add("const", {{"obj", text(expression)}});
    EXPECT_EQ(model.check(), code);
    if (code == 0) {
      EXPECT_EQ(model.meta->number(id, "obj"), value);
    }
  }
  Model model;
  const uint64_t source = model.add("const");
  model.link(source,
             model.add("lut1d", {{"bp1", text("[k / 4 for k in range(3)]")}, {"out", text("(1, tau, 2)")}}));
  const uint64_t grid =
      model.add("lut2d", {{"bp1", text("[1]")}, {"bp2", text("[1, 2]")}, {"out", text("[[3, 4]]")}});
  model.link(source, grid), model.link(source, grid, 2);
  EXPECT_EQ(model.check(), 0);
}

// The text of a file comes from a stranger: it computes, and does nothing else.
TEST_F(BlocksPythonTest, ExpressionsOfAFile) {
  const std::tuple<const char*, int, double> cases[] = {{"2 * tau", 0, 1},
                                                        {"math.pi / math.pi + math.sqrt(4)", 0, 3},
                                                        {"-(1.5 - float('1e3')) // 10 % 7", 0, 1},
                                                        {"float(3)", 0, 3},
                                                        {"ran.append(1)", 13, 0},
                                                        {"__import__('os').system('true')", 13, 0},
                                                        {"(lambda: 1)()", 13, 0},
                                                        {"[ran.append(1) for _ in (1,)]", 13, 0},
                                                        {"math.__class__", 13, 0},
                                                        {"math.factorial(5)", 13, 0},
                                                        {"9 ** 9 ** 9 ** 9", 13, 0},
                                                        {"'a' * 3", 13, 0},
                                                        {"Half()", 13, 0},
                                                        {"tau.real", 13, 0},
                                                        {"1 if tau else 2", 13, 0},
                                                        {"[1] * 3", 13, 0},
                                                        {"[1, 2]", 12, 0}};
  for (const auto& [expression, code, value] : cases) {
    SCOPED_TRACE(expression);
    Model model;
    ASSERT_EQ(load(model, '"' + std::string(expression) + '"'), 0);
    EXPECT_EQ(model.check(), code);
    if (code == 0) {
      EXPECT_EQ(model.meta->number(2, "obj"), value);
    }
  }
  Model model;
  ASSERT_EQ(load(model, '"' + std::string(5000, '(') + '"'), 0);
  EXPECT_EQ(model.check(), 13);
  ASSERT_EQ(load(model, '"' + std::string(900, '-') + "1\""), 0);
  EXPECT_EQ(model.check(), 13);
  run("assert ran == []");
}

TEST_F(BlocksPythonTest, ResultsArePlaced) {
  Model model;
  model.meta->set_time(1, 2, 0.5);
  const uint64_t system = model.add("subsys", {}, 1, "my plant"), in = model.add("inport", {}, system);
  const uint64_t gain = model.add("gain", {{"expression", 2.0}}, system),
                 out = model.add("outport", {}, system);
  model.link(in, gain), model.link(gain, out, 1, 1, "twice");
  model.link(model.add("clock"), system, 1, 1, "t");
  model.show(system, "y");
  ASSERT_EQ(model.run(), 0);
  run("assert mainsys.t.ydata == [1, 1.5, 2] and mainsys.t.xdata == [1, 1.5, 2] and mainsys.t.name == "
      "'mainsys.t'");
  run("assert mainsys.y.ydata == [2, 3, 4] and mainsys.my_plant.twice.ydata == [2, 3, 4]");
  run("assert mainsys.my_plant.twice.name == 'mainsys.my plant.twice'; kvalo.fails = True");
  EXPECT_EQ(model.exec->run(), 4);
  EXPECT_THAT(python::take_error(), testing::HasSubstr("MemoryError"));
  run("kvalo.fails = False");
}

TEST_F(BlocksPythonTest, AnInterruptEndsARun) {
  Model model;
  model.meta->set_time(0, 1e8, 1);
  model.link(model.add("clock"), model.add("gain"));
  run("import signal; signal.signal(signal.SIGALRM, signal.default_int_handler); "
      "signal.setitimer(signal.ITIMER_REAL, 0.1)");
  EXPECT_EQ(model.run(), 2);
  EXPECT_THAT(python::take_error(), testing::HasSubstr("KeyboardInterrupt"));
}

}  // namespace
