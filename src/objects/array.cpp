// The Python type Array.
#include "objects/array.h"

#include <algorithm>
#include <limits>
#include <new>

#include "kernels/array.h"
#include "objects/array_operators.h"
#include "objects/many_floats.h"
#include "objects/row.h"

namespace mirn2 {

namespace {

ArrayObject* self_of(PyObject* self) { return reinterpret_cast<ArrayObject*>(self); }

// ---- life and death ----

PyObject* alloc_array(PyTypeObject* type) {
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return nullptr;
  new (&self_of(self)->column) ColumnPtr();
  return self;
}

PyObject* array_new(PyTypeObject* type, PyObject*, PyObject*) {
  return guard(PyExc_ValueError, [&] {
    ColumnPtr column = make_column({});
    Ref self = checked(alloc_array(type));
    self_of(self.get())->column = std::move(column);
    return self.release();
  });
}

void array_dealloc(PyObject* self) {
  self_of(self)->column.~ColumnPtr();
  Py_TYPE(self)->tp_free(self);
}

Samples samples_from_size(PyObject* size) {
  int overflow = 0;
  const long long n = PyLong_AsLongLongAndOverflow(size, &overflow);
  check_python();
  if (overflow > 0) throw std::bad_alloc();
  if (overflow < 0 || n <= 0) fail(PyExc_ValueError, "Argument must be a positive integer");
  Samples samples;
  samples.resize(static_cast<uint64_t>(n));
  return samples;
}

int array_init(PyObject* self, PyObject* args, PyObject*) {
  return guard(
      PyExc_ValueError,
      [&] {
        const Py_ssize_t given = args == nullptr ? 0 : PyTuple_GET_SIZE(args);
        if (given > 2) fail(PyExc_ValueError, "Constructor does not take more than two arguments");
        if (given == 0) return 0;
        PyObject* first = PyTuple_GET_ITEM(args, 0);
        if (PyList_Check(first)) {
          self_of(self)->column = make_column(samples_from_sequence(first));
        } else if (PyLong_Check(first)) {
          self_of(self)->column = make_column(samples_from_size(first));
        } else if (ArrayObject* other = as_array(first)) {
          self_of(self)->column = other->column;
          self_of(self)->aux = other->aux;
        } else {
          fail(PyExc_ValueError, "Constructor has invalid argument type");
        }
        return 0;
      },
      -1);
}

PyObject* array_repr(PyObject* self) {
  return guard(PyExc_ValueError, [&] {
    const Column& data = *self_of(self)->column;
    if (data.empty()) return to_unicode("[]");
    constexpr uint64_t shown = 16;
    const bool whole = data.size() <= 2 * shown;
    std::string text = "[";
    for (uint64_t i = 0; i < data.size(); ++i) {
      if (!whole && i == shown) {
        text += fmt::format("<{} items>,", data.size() - 2 * shown);
        i = data.size() - shown;
      }
      // A NaN has a sign, which depends on the processor and says nothing.
      text += fmt::format("{:g},", data[i] != data[i] ? std::numeric_limits<double>::quiet_NaN() : data[i]);
    }
    text.back() = ']';
    return to_unicode(text);
  });
}

// ---- elements ----

Py_ssize_t array_length(PyObject* self) { return static_cast<Py_ssize_t>(self_of(self)->column->size()); }

uint64_t element_index(PyObject* self, Py_ssize_t index) {
  const Column& data = *self_of(self)->column;
  if (data.empty()) fail(PyExc_Exception, "Data is empty");
  return checked_index(index, data.size());
}

PyObject* array_item(PyObject* self, Py_ssize_t index) {
  return guard(PyExc_Exception,
               [&] { return PyFloat_FromDouble((*self_of(self)->column)[element_index(self, index)]); });
}

int array_set_item(PyObject* self, Py_ssize_t index, PyObject* value) {
  return guard(
      PyExc_Exception,
      [&] {
        element_index(self, index);
        if (value == nullptr) fail(PyExc_TypeError, "Elements of a kvalo.Array cannot be deleted");
        const double number = number_argument(value, "Unsupported type");
        const uint64_t at = element_index(self, index);
        self_of(self)->column->write()[at] = number;
        return 0;
      },
      -1);
}

// The interpreter adds the length to a negative index once before it calls sq_item; going through the
// mapping protocol keeps "negative counts from the end" exact for indexes below -length.
PyObject* array_subscript(PyObject* self, PyObject* key) {
  if (!PyIndex_Check(key)) return report(PyExc_TypeError, "Array indices must be integers");
  const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
  if (index == -1 && PyErr_Occurred() != nullptr) return nullptr;
  return array_item(self, index);
}

int array_set_subscript(PyObject* self, PyObject* key, PyObject* value) {
  if (!PyIndex_Check(key)) {
    report(PyExc_TypeError, "Array indices must be integers");
    return -1;
  }
  const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
  if (index == -1 && PyErr_Occurred() != nullptr) return -1;
  return array_set_item(self, index, value);
}

// ---- methods ----

Ref array_clone(PyObject* self, Items) {
  Ref copy = make_array(self_of(self)->column->hold().clone());
  self_of(copy.get())->aux = self_of(self)->aux;
  return copy;
}

Ref array_to_list(PyObject* self, Items) {
  const Samples data = self_of(self)->column->hold();
  Ref list = checked(PyList_New(static_cast<Py_ssize_t>(data.size())));
  const FloatRoom room(data.size());
  for (uint64_t i = 0; i < data.size(); ++i) {
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), checked(PyFloat_FromDouble(data[i])).release());
  }
  return list;
}

double array_avg(PyObject* self, Items) { return kernels::mean(self_of(self)->column->values()); }

double array_sum(PyObject* self, Items) { return kernels::sum(self_of(self)->column->values()); }

double numeric(PyObject* value) { return number_argument(value, "Argument must be a numeric value"); }

uint64_t array_count_between(PyObject* self, PyObject* lower, PyObject* upper) {
  const double lo = numeric(lower);
  const double hi = numeric(upper);
  return kernels::count_between(self_of(self)->column->values(), lo, hi);
}

template <auto kernel>
uint64_t array_count(PyObject* self, PyObject* value) {
  const double v = numeric(value);
  return kernel(self_of(self)->column->values(), v);
}

// The operator with other than a number or an Array gives NotImplemented, and so do these.
template <kernels::Operator which>
PyObject* array_logical(PyObject* self, PyObject* other) {
  return array_binary(self, other, which);
}

PyObject* array_logical_not(PyObject* self) {
  return array_unary(self, kernels::unary(kernels::Function::invert));
}

Ref array_round(PyObject* self, Items items) {
  if (items.size() > 1) fail(PyExc_Exception, "Wrong number of arguments");
  int64_t digits = 0;
  if (items.size() == 1) {
    if (!PyLong_Check(items[0])) fail(PyExc_Exception, "Precision must be an integer");
    digits = PyLong_AsLongLong(items[0]);
    if (digits == -1) check_python();
  }
  const Samples a = self_of(self)->column->hold();
  Samples rounded;
  rounded.resize_for_overwrite(a.size());
  kernels::round_digits(a.span(), digits, rounded.span());
  return make_array(std::move(rounded));
}

// ---- buffer protocol: a writable one-dimensional view of doubles that keeps the samples alive ----

struct View {
  explicit View(Column& column)
      : samples(column.open_view()), shape(static_cast<Py_ssize_t>(samples.size())) {}
  ~View() { Column::close_view(samples); }
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  Samples samples;
  Py_ssize_t shape;
  Py_ssize_t stride = sizeof(double);
};

int array_get_buffer(PyObject* self, Py_buffer* view, int flags) {
  return guard(
      PyExc_BufferError,
      [&] {
        view->obj = nullptr;
        auto* held = new View(*self_of(self)->column);
        static double nothing;  // an empty Array has no buffer, but a view must point somewhere
        view->buf = held->samples.data() != nullptr ? static_cast<void*>(held->samples.data()) : &nothing;
        view->len = held->shape * held->stride;
        view->readonly = 0;
        view->itemsize = sizeof(double);
        view->format = (flags & PyBUF_FORMAT) != 0 ? const_cast<char*>("d") : nullptr;
        view->ndim = 1;
        view->shape = (flags & PyBUF_ND) != 0 ? &held->shape : nullptr;
        view->strides = (flags & PyBUF_STRIDES) == PyBUF_STRIDES ? &held->stride : nullptr;
        view->suboffsets = nullptr;
        view->internal = held;
        Py_INCREF(self);
        view->obj = self;
        return 0;
      },
      -1);
}

void array_release_buffer(PyObject*, Py_buffer* view) { delete static_cast<View*>(view->internal); }

PyBufferProcs array_buffer = {.bf_getbuffer = array_get_buffer, .bf_releasebuffer = array_release_buffer};

// ---- tables ----

PySequenceMethods array_sequence = {
    .sq_length = array_length,
    .sq_item = array_item,
    .sq_ass_item = array_set_item,
};

PyMappingMethods array_mapping = {
    .mp_length = array_length,
    .mp_subscript = array_subscript,
    .mp_ass_subscript = array_set_subscript,
};

constexpr Frame counts{.counted = "count_impl"};

PyMethodDef array_methods[] = {
    row<"clone", "($self, /)", "*", "Clone kvalo.Array and its content", array_clone>(),
    row<"to_list", "($self, /)", "*", "Convert kvalo.Array to standard Python list", array_to_list>(),
    row<"avg", "($self, /)", "*", "Return kvalo.Array's average value", array_avg>(),
    row<"sum", "($self, /)", "*", "Return kvalo.Array's values sum", array_sum>(),
    row<"count_bt", "($self, lo, hi, /)", "OO",
        "Return number of elements that are between the specified limits", array_count_between,
        Frame{.counted = "count_bt"}>(),
    row<"count_eq", "($self, value, /)", "O", "Return number of elements that are equal to the argument",
        array_count<kernels::count_equal>, counts>(),
    row<"count_gt", "($self, value, /)", "O", "Return number of elements that are greater than the argument",
        array_count<kernels::count_greater>, counts>(),
    row<"count_lt", "($self, value, /)", "O", "Return number of elements that are less than the argument",
        array_count<kernels::count_less>, counts>(),
    row<"count_ne", "($self, value, /)", "O", "Return number of elements that are not equal to the argument",
        array_count<kernels::count_not_equal>, counts>(),
    row<"logical_and", "($self, other, /)", "O",
        "Return new kvalo.Array with 0's and 1's, result from logical and operation",
        array_logical<kernels::Operator::conjunction>, Frame{.counted = "logical_and"}>(),
    row<"logical_or", "($self, other, /)", "O",
        "Return new kvalo.Array with 0's and 1's, result from logical or operation",
        array_logical<kernels::Operator::disjunction>, Frame{.counted = "logical_or"}>(),
    row<"logical_not", "($self, /)", "",
        "Return new kvalo.Array with 0's and 1's, result from logical not operation", array_logical_not>(),
    row<"logical_xor", "($self, other, /)", "O",
        "Return new kvalo.Array with 0's and 1's, result from logical xor operation",
        array_logical<kernels::Operator::exclusive>, Frame{.counted = "logical_xor"}>(),
    row<"__round__", "($self, ndigits=0, /)", "*",
        "Return kvalo.Array rounded to ndigits precision after the decimal point", array_round,
        Frame{.failures = &PyExc_Exception}>(),
    {},
};

}  // namespace

ArrayObject* as_array(PyObject* object) noexcept {
  return object != nullptr && PyObject_TypeCheck(object, &ArrayType) ? self_of(object) : nullptr;
}

Ref make_array(ColumnPtr column) {
  Ref array = checked(alloc_array(&ArrayType));
  self_of(array.get())->column = std::move(column);
  return array;
}

Ref make_array(Samples samples) { return make_array(make_column(std::move(samples))); }

Samples samples_from_sequence(PyObject* sequence) {
  Samples samples;
  const Py_ssize_t n = PySequence_Fast_GET_SIZE(sequence);
  samples.resize(static_cast<uint64_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    // An item's own __float__ may shorten the list meanwhile.
    if (i >= PySequence_Fast_GET_SIZE(sequence)) {
      fail(PyExc_ValueError, "The sequence changed its size while it was read");
    }
    const Ref item = Ref::share(PySequence_Fast_GET_ITEM(sequence, i));
    const double value = PyFloat_AsDouble(item.get());
    if (value == -1.0) check_python();
    samples[static_cast<uint64_t>(i)] = value;
  }
  return samples;
}

uint64_t checked_index(Py_ssize_t index, uint64_t size) {
  const auto count = static_cast<Py_ssize_t>(size);
  const Py_ssize_t from_start = index < 0 ? index + count : index;
  if (from_start < 0 || from_start >= count) fail(PyExc_IndexError, "Index out of bounds");
  return static_cast<uint64_t>(from_start);
}

PyTypeObject ArrayType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.Array",
    .tp_basicsize = sizeof(ArrayObject),
    .tp_dealloc = array_dealloc,
    .tp_repr = array_repr,
    .tp_as_number = &array_number,
    .tp_as_sequence = &array_sequence,
    .tp_as_mapping = &array_mapping,
    .tp_as_buffer = &array_buffer,
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE,
    .tp_doc = signature::docstring<"Array", "(source=..., unused=..., /)", "Kvalo array object">.data(),
    .tp_richcompare = array_richcompare,
    .tp_methods = array_methods,
    .tp_init = array_init,
    .tp_new = array_new,
};

}  // namespace mirn2
