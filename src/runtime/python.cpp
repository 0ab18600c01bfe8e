// Calls into the interpreter through its function table.
#include "runtime/python.h"

#include <stdexcept>
#include <utility>

namespace mirn3::python {

table_t table;

bool is_filled() noexcept { return table.Py_DecRef != nullptr; }

namespace {

// The interpreter cuts what one call writes to standard output at this many bytes.
constexpr size_t longest_write = 1000;

// Bit of a type's __flags__ that says that its objects are str.
constexpr long unicode_subclass = 1L << 28;

// An owned reference.
class Ref {
 public:
  explicit Ref(object owned) noexcept : object_(owned) {}
  ~Ref() {
    if (object_ != nullptr) table.Py_DecRef(object_);
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;

  object get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  object object_;
};

// Sets a pending error aside and restores it at the end.
class Earlier {
 public:
  Earlier() { table.PyErr_Fetch(&fetched_[0], &fetched_[1], &fetched_[2]); }
  ~Earlier() { restore(); }
  Earlier(const Earlier&) = delete;
  Earlier& operator=(const Earlier&) = delete;

  void restore() {
    if (object type = std::exchange(fetched_[0], nullptr))
      table.PyErr_Restore(type, fetched_[1], fetched_[2]);
  }

 private:
  object fetched_[3] = {};
};

// UTF-8 of a str; false, with the interpreter's error cleared, if it is not a str or cannot be encoded.
bool encode(object text, std::string& into) {
  const Ref bytes(table.PyUnicode_AsEncodedString(text, "UTF-8", "strict"));
  const char* characters = bytes ? table.PyBytes_AsString(bytes.get()) : nullptr;
  if (characters == nullptr) {
    table.PyErr_Clear();
    return false;
  }
  into = characters;
  return true;
}

bool is_str(object value) {
  const Ref type(table.PyObject_GetAttrString(value, "__class__"));
  const Ref flags(type ? table.PyObject_GetAttrString(type.get(), "__flags__") : nullptr);
  const long bits = flags ? table.PyLong_AsLong(flags.get()) : 0;
  if (table.PyErr_Occurred() != nullptr) {
    table.PyErr_Clear();
    return false;
  }
  return (bits & unicode_subclass) != 0;
}

// How much of the text to write at once: at most `limit` bytes, and not half a character.
size_t piece_length(std::string_view text, size_t limit) {
  if (text.size() <= limit) return text.size();
  size_t end = limit;
  while (end > limit - 4 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
  return (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80 ? limit : end;
}

}  // namespace

Lock::Lock() {
  if (!is_filled()) return;
  state_ = table.PyGILState_Ensure();
  held_ = true;
}

Lock::~Lock() {
  if (held_) table.PyGILState_Release(state_);
}

void print_line(std::string_view text) {
  if (!is_filled()) return;
  // A zero byte would end the text there.
  std::string whole(text);
  std::erase(whole, '\0');
  std::string_view rest = whole;
  const Lock lock;
  while (rest.size() >= longest_write) {  // the last piece leaves room for the line feed
    const size_t length = piece_length(rest, longest_write - 1);
    table.PySys_WriteStdout("%s", std::string(rest.substr(0, length)).c_str());
    rest.remove_prefix(length);
  }
  table.PySys_WriteStdout("%s\n", std::string(rest).c_str());
}

std::string take_error() {
  if (!is_filled()) return {};
  object fetched[3] = {};
  table.PyErr_Fetch(&fetched[0], &fetched[1], &fetched[2]);
  const Ref type(fetched[0]);
  const Ref value(fetched[1]);
  const Ref traceback(fetched[2]);
  if (!type) return {};

  std::string message;
  if (const Ref name(table.PyObject_GetAttrString(type.get(), "__name__"));
      !name || !encode(name.get(), message)) {
    message = "Exception";
  }
  std::string detail;
  if (value) {
    const Ref text(table.PyObject_Str(value.get()));
    if (text && encode(text.get(), detail) && !detail.empty()) message += ": " + detail;
  }
  table.PyErr_Clear();  // whatever the conversion to text has raised
  return message;
}

std::string to_string(object value) {
  Earlier earlier;
  std::string result;
  // The common case first: only a str can be encoded, so no question about the type is needed.
  if (encode(value, result)) return result;
  if (is_str(value)) throw std::runtime_error("Error converting Python string to standard string");
  const Ref text(table.PyObject_Str(value));
  if (!text) {
    table.PyErr_Clear();
    throw std::runtime_error("Error converting Python object to string");
  }
  if (!encode(text.get(), result)) throw std::runtime_error("Error encoding Python string to utf-8");
  earlier.restore();
  if (table.PyErr_Occurred() != nullptr) {
    throw std::runtime_error("Error converting Python object to string: " + take_error());
  }
  return result;
}

void Wrapper::set_up() { ready_ = is_filled(); }

Wrapper& wrap() {
  static Wrapper wrapper;
  return wrapper;
}

}  // namespace mirn3::python
