// One row per script function: its name, parameters with defaults, argument format, docstring and
// implementation. Parsing, the method table's entry, `__text_signature__` and the frame around the call come
// from it.
//
//   Ref lowpass(PyObject* series, double tau) { ... }
//
//   const PyMethodDef rows[] = {
//       row<"lowpass", "(series, /, tau)", "Od", "Low-pass filter", lowpass>(),
//   };
//
// What a row's format may be:
//
//   "O|dd"  the interpreter's parser, with its messages. The implementation takes one value per letter (see
//           signature::Letter); std::optional for a parameter that tells when it is not given. Parameters
//           that are all before "/" are parsed by position, others by name too.
//   ""      no arguments.
//   "*"     Items: whatever was given by position, for the implementation to read.
//
// The implementation returns a new reference (PyObject* or Ref), a number, or nothing for None. It throws
// what guard() turns into Python errors. A method's comes with "$self" and takes the object first.
#pragma once

#include <Python.h>

#include <concepts>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "objects/arguments.h"
#include "objects/frame.h"
#include "objects/signature.h"

namespace mirn2 {

// A short name in a Frame; empty for none.
struct Label {
  char text[40] = {};
  constexpr Label() = default;
  template <size_t N>
  constexpr Label(const char (&name)[N]) {  // NOLINT: implicit by design
    std::copy_n(name, N, text);
  }
  constexpr bool is_set() const { return text[0] != '\0'; }
};

// What happens around a call, in this order.
struct Frame {
  PyObject** failures = &PyExc_ValueError;  // what a failure without a Python type of its own is raised as
  Label trace{};                            // entry and exit are traced under this name
  Label online{};  // refused while a real-time data connection is active, in this name
  // The format holds objects only, and a wrong number of them is a ValueError in this name; the interpreter's
  // parser is not asked.
  Label counted{};
};

// In place of an implementation: a function that this version does not have yet.
struct Pending {};
inline constexpr Pending pending{};

namespace rows {

inline PyObject* wrap(PyObject* result) noexcept { return result; }
inline PyObject* wrap(Ref result) noexcept { return result.release(); }
inline PyObject* wrap(double result) noexcept { return PyFloat_FromDouble(result); }
template <std::unsigned_integral Count>
PyObject* wrap(Count result) noexcept {
  return PyLong_FromUnsignedLongLong(result);
}

// A call within guard(), and a constructor's.
using Run = PyObject*(PyObject* self, const Call& call);
PyObject* guarded(PyObject* failures, Run* run, PyObject* self, const Call& call) noexcept;
int guarded_init(PyObject* failures, Run* run, PyObject* self, PyObject* args, PyObject* keywords) noexcept;

template <typename Function>
struct Traits {
  using Tuple = std::tuple<>;  // of what is no function
};
template <typename Result, typename... Arguments>
struct Traits<Result (*)(Arguments...)> {
  using Tuple = std::tuple<Arguments...>;
};
template <typename Result, typename... Arguments>
struct Traits<Result (*)(Arguments...) noexcept> : Traits<Result (*)(Arguments...)> {};

template <typename T>
inline constexpr bool is_optional = false;
template <typename T>
inline constexpr bool is_optional<std::optional<T>> = true;

template <Name name, Name parameters, Name format, auto implementation, Frame frame,
          bool takes_self = signature::read_parameters(parameters.text).has_self>
class Function {
  using Sig = signature::Signature<name, parameters, format>;
  static constexpr signature::Parameters all = Sig::all;
  static constexpr bool is_pending = std::is_same_v<std::remove_cv_t<decltype(implementation)>, Pending>;
  static constexpr std::string_view letters = format.text;
  static constexpr size_t count = Sig::letters.count;

  template <typename... Values>
  static PyObject* invoke([[maybe_unused]] PyObject* self, Values... values) {
    const auto work = [&] {
      if constexpr (takes_self) {
        return implementation(self, values...);
      } else {
        return implementation(values...);
      }
    };
    if constexpr (std::is_void_v<decltype(work())>) {
      work();
      Py_RETURN_NONE;
    } else {
      return wrap(work());
    }
  }

  template <size_t i>
  using Parsed = typename signature::Letter<Sig::letters.letters[i]>::Parsed;
  template <size_t i>
  using Passed = typename signature::Letter<Sig::letters.letters[i]>::Passed;
  template <size_t i>
  using Wanted =
      std::tuple_element_t<i + (takes_self ? 1 : 0), typename Traits<decltype(implementation)>::Tuple>;

  static constexpr bool defaults_agree() {
    for (size_t i = 0; i < count; ++i) {
      if ((all.items[i].value != 0) != (i >= Sig::letters.required)) return false;
    }
    return true;
  }
  static_assert(letters == "*" || all.count == count, "a letter of the format for every parameter");
  static_assert(letters == "*" || defaults_agree(), "exactly the parameters after '|' have defaults");

  template <size_t i>
  static constexpr bool fits() {
    static_assert(std::is_same_v<Wanted<i>, Passed<i>> || std::is_same_v<Wanted<i>, std::optional<Passed<i>>>,
                  "the implementation takes another type than the format's letter gives");
    static_assert(i < Sig::letters.required || Sig::template has_default_value<i>() ||
                      std::is_pointer_v<Wanted<i>> || is_optional<Wanted<i>>,
                  "a parameter without a value for its absence is a pointer or std::optional");
    return true;
  }

  template <size_t i>
  static Wanted<i> passed(const Parsed<i>& value, [[maybe_unused]] const PyObject* given) {
    if constexpr (is_optional<Wanted<i>>) {
      return given != nullptr ? Wanted<i>(static_cast<Passed<i>>(value)) : std::nullopt;
    } else {
      return static_cast<Passed<i>>(value);
    }
  }

  template <typename... Values>
  static void ask_parser(const Call& call, Values&... values) {
    const Ref tuple = call.tuple();
    const char* const text = Sig::parser_format.data();
    int parsed = 0;
    if constexpr (all.takes_keywords()) {
      const Ref dict = call.dict();
      auto* const keywords = const_cast<char**>(Sig::keywords.data());
      parsed = PyArg_ParseTupleAndKeywords(tuple.get(), dict.get(), text, keywords, &values...);
    } else {
      parsed = PyArg_ParseTuple(tuple.get(), text, &values...);
    }
    if (parsed == 0) throw python_error();
  }

  template <size_t... i>
  static PyObject* parse(PyObject* self, const Call& call, std::index_sequence<i...>) {
    static_assert((fits<i>() && ...));
    std::tuple<Parsed<i>...> values(Sig::template default_value<i>()...);
    std::array<PyObject*, count> given{};
    const bool simple = arrange(call, std::span(Sig::keywords).first(count), Sig::letters.required, given) &&
                        (... && (given[i] == nullptr || take(given[i], std::get<i>(values))));
    if (!simple) ask_parser(call, std::get<i>(values)...);
    return invoke(self, passed<i>(std::get<i>(values), given[i])...);
  }

  template <size_t... i>
  static PyObject* count_and_invoke(PyObject* self, const Call& call, std::index_sequence<i...>) {
    require_count(call.given, count, frame.counted.text);
    return invoke(self, call.items[i]...);
  }

  static PyObject* with_arguments(PyObject* self, const Call& call) {
    if constexpr (frame.online.is_set()) refuse_online(frame.online.text);
    if constexpr (letters == "*") {
      return invoke(self, Items(call.items, static_cast<size_t>(call.given)));
    } else if constexpr (frame.counted.is_set()) {
      return count_and_invoke(self, call, std::make_index_sequence<count>());
    } else if constexpr (letters.empty()) {
      return invoke(self);
    } else {
      return parse(self, call, std::make_index_sequence<count>());
    }
  }

  // The whole call; throws.
  static PyObject* run(PyObject* self, const Call& call) {
    if constexpr (is_pending) {
      fail(PyExc_NotImplementedError, "kvalo.{:s} is not available in this version", name.text);
    } else if constexpr (frame.trace.is_set()) {
      const Trace trace(frame.trace.text);
      return with_arguments(self, call);
    } else {
      return with_arguments(self, call);
    }
  }

 public:
  // The entries that the interpreter calls, by calling style.
  static PyObject* by_name(PyObject* self, PyObject* const* items, Py_ssize_t given,
                           PyObject* keywords) noexcept {
    return guarded(*frame.failures, run, self, {items, given, keywords});
  }
  static PyObject* by_position(PyObject* self, PyObject* const* items, Py_ssize_t given) noexcept {
    return guarded(*frame.failures, run, self, {items, given, nullptr});
  }
  static PyObject* without_arguments(PyObject* self, PyObject*) noexcept {
    return guarded(*frame.failures, run, self, {nullptr, 0, nullptr});
  }
  static int init(PyObject* self, PyObject* args, PyObject* keywords) noexcept {
    return guarded_init(*frame.failures, run, self, args, keywords);
  }

  static constexpr bool takes_keywords = all.takes_keywords();
  static constexpr bool takes_nothing = letters.empty() && !frame.counted.is_set();
};

template <typename Entry>
PyCFunction as_method(Entry* entry) {
  return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(entry));
}

}  // namespace rows

// The rows of one family, for the module's table.
using Rows = std::span<const PyMethodDef>;

// The method table's entry of a function.
template <Name name, Name parameters, Name format, Name doc, auto implementation, Frame frame = Frame{}>
PyMethodDef row() {
  using Function = rows::Function<name, parameters, format, implementation, frame>;
  const char* const text = signature::docstring<name, parameters, doc>.data();
  if constexpr (Function::takes_nothing) {
    return {name.text, Function::without_arguments, METH_NOARGS, text};
  } else if constexpr (Function::takes_keywords) {
    return {name.text, rows::as_method(Function::by_name), METH_FASTCALL | METH_KEYWORDS, text};
  } else {
    return {name.text, rows::as_method(Function::by_position), METH_FASTCALL, text};
  }
}

// The same for a type's constructor: tp_init. The implementation takes the object first; the parameters are
// written without it, and shown by signature::docstring as tp_doc.
template <Name name, Name parameters, Name format, auto implementation, Frame frame = Frame{}>
inline constexpr initproc constructor =
    rows::Function<name, parameters, format, implementation, frame, true>::init;

}  // namespace mirn2
