// The runtime's calls into an interpreter, which is loaded for these tests alone.
#include "runtime/python.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "runtime/home.h"

namespace python = mirn3::python;

namespace {

// Without an interpreter nothing is called; runs before the interpreter is there.
TEST(APythonTableTest, NothingHappensWhileItIsEmpty) {
  ASSERT_FALSE(python::is_filled());
  const python::Lock lock;
  python::print_line("nobody reads this");
  EXPECT_EQ(python::take_error(), "");
  python::wrap().set_up();
  EXPECT_FALSE(python::wrap().ready());
}

class PythonTest : public testing::Test {
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
  }

  static void TearDownTestSuite() {
    if (library == nullptr) return;
    reinterpret_cast<int (*)()>(::dlsym(library, "Py_FinalizeEx"))();
    python::table = {};
    python::wrap().set_up();
  }

  void SetUp() override {
    if (library == nullptr) GTEST_SKIP() << "libpython3.11 is not installed";
  }

  static void run(const std::string& code) {
    ASSERT_EQ(python::table.PyRun_SimpleStringFlags(code.c_str(), nullptr), 0) << code;
  }

  // The value of an expression, borrowed from __main__ and alive until the next call.
  static python::object value(const std::string& expression) {
    run("result = " + expression);
    const auto& t = python::table;
    return t.PyDict_GetItemString(t.PyModule_GetDict(t.PyImport_AddModule("__main__")), "result");
  }

  // Leaves the exception that calling the function without arguments raises.
  static void raise(const std::string& function) {
    const python::object call = value(function);
    const python::object none = python::table.PyTuple_New(0);
    EXPECT_EQ(python::table.PyObject_Call(call, none, nullptr), nullptr);
    python::table.Py_DecRef(none);
  }

  static void* library;
};
void* PythonTest::library = nullptr;

TEST_F(PythonTest, ObjectsBecomeTextOrSayWhatWentWrong) {
  EXPECT_TRUE(python::wrap().ready());
  const std::string no_text = "Error converting Python string to standard string";
  const struct {
    std::string expression, text, error = "";
  } cases[] = {
      {"'höhe µ 日本 😀'", "höhe µ 日本 😀"},
      {"''", ""},
      {"None", "None"},
      {"['a', 1.5]", "['a', 1.5]"},
      {"type('Name', (str,), {'__str__': lambda self: 'other'})('own')", "own"},
      {"type('Shown', (), {'__str__': lambda self: 'shown'})()", "shown"},
      {"'half a pair \\ud800'", "", no_text},
      {"type('Sub', (str,), {})('\\ud800')", "", no_text},
      {"type('Bad', (), {'__str__': lambda self: 1 / 0})()", "", "Error converting Python object to string"},
      {"type('Half', (), {'__str__': lambda self: '\\ud800'})()", "",
       "Error encoding Python string to utf-8"},
  };
  for (const auto& c : cases) {
    const python::object object = value(c.expression);
    std::string text;
    EXPECT_EQ(message_of<std::runtime_error>([&] { text = python::to_string(object); }), c.error)
        << c.expression;
    EXPECT_EQ(text, c.text);
    EXPECT_EQ(python::table.PyErr_Occurred(), nullptr) << c.expression;
  }
  // An error that was pending all along: a str does not mind, the text of others is refused.
  const python::object number = value("12");
  raise("lambda: [][1]");
  EXPECT_EQ(python::to_string(python::table.PyUnicode_FromString("text")), "text");
  EXPECT_EQ(message_of<std::runtime_error>([&] { python::to_string(number); }),
            "Error converting Python object to string: IndexError: list index out of range");
  EXPECT_EQ(python::table.PyErr_Occurred(), nullptr);
}

TEST_F(PythonTest, PendingErrorIsTakenAsTextAndReferencesAreGivenBack) {
  EXPECT_EQ(python::take_error(), "");
  run("import sys\nclass Kept:\n  def __str__(self): return 'kept'\n"
      "class Mute(Exception):\n  def __str__(self): 1 / 0\n"
      "kept, errors = Kept(), [ZeroDivisionError('zero'), RuntimeError(), ValueError('höhe\\nzwei'), "
      "Mute()]\n"
      "def fail():\n  errors.append(errors.pop(0).with_traceback(None))\n  raise errors[-1]\n"
      "def counts(): return [sys.getrefcount(kept), *map(sys.getrefcount, errors)]\nbefore = counts()");
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(python::to_string(value("kept")), "kept");
    for (const char* text : {"ZeroDivisionError: zero", "RuntimeError", "ValueError: höhe\nzwei", "Mute"}) {
      raise("fail");
      EXPECT_EQ(python::take_error(), text);
      EXPECT_EQ(python::table.PyErr_Occurred(), nullptr);
    }
  }
  run("result = [error.with_traceback(None) for error in errors] and None");
  EXPECT_EQ(python::to_string(value("before == counts()")), "True");
}

TEST_F(PythonTest, LinesOfEveryLengthArriveWholeFromAnyThread) {
  std::string mixed;
  for (int i = 0; i < 3000; ++i) mixed += "aü日😀";
  std::vector<std::string> texts = {"", "per cent %s %n {}", "two\nlines", mixed, mixed + "x", "x" + mixed};
  for (size_t n = 995; n <= 1005; ++n) {
    texts.insert(texts.end(), {std::string(n, 'a'), std::string(n, 'a') + "😀" + std::string(n, 'b')});
  }
  for (const std::string& text : texts) {
    run("import io, sys\nold, sys.stdout = sys.stdout, io.StringIO()");
    python::print_line(text);
    auto* save = reinterpret_cast<void* (*)()>(::dlsym(library, "PyEval_SaveThread"))();
    run_threads(1, [&](size_t) { python::print_line(text); });
    reinterpret_cast<void (*)(void*)>(::dlsym(library, "PyEval_RestoreThread"))(save);
    run("written, sys.stdout = sys.stdout.getvalue(), old");
    EXPECT_EQ(python::to_string(value("written")), text + "\n" + text + "\n");
  }
}

}  // namespace
