// The headers of MAT files.
#include "backends/mat/layout.h"

#include <array>
#include <cstring>
#include <optional>

#include "runtime/exc.h"

namespace mirn2::rd::mat {

namespace {

using mirn3::exc::error_t;
using samples::Kind;
using samples::Number;

constexpr int deepest = 32;
constexpr size_t most_arrays = 100'000;
constexpr uint32_t longest_name = 4096;

enum : uint32_t { type_int8 = 1, type_int32 = 5, type_uint32 = 6, type_matrix = 14, type_compressed = 15 };
enum : uint32_t { class_cell = 1, class_struct, class_object, class_char, class_sparse, class_double };
constexpr uint32_t last_numeric_class = 15;
constexpr uint32_t flag_complex = 0x800;

std::optional<Kind> kind_of(uint32_t type) {
  switch (type) {
    case 1:
      return Kind::i8;
    case 2:
      return Kind::u8;
    case 3:
      return Kind::i16;
    case 4:
      return Kind::u16;
    case 5:
      return Kind::i32;
    case 6:
      return Kind::u32;
    case 7:
      return Kind::f32;
    case 9:
      return Kind::f64;
    case 12:
      return Kind::i64;
    case 13:
      return Kind::u64;
    default:
      return std::nullopt;
  }
}

uint32_t number32(const unsigned char* at, bool swapped) {
  uint32_t value;
  std::memcpy(&value, at, sizeof value);
  return swapped ? samples::byte_swapped(value) : value;
}

// rows * columns, or nothing where that passes 64 bits.
std::optional<uint64_t> product(uint64_t rows, uint64_t columns) {
  uint64_t count = 0;
  if (__builtin_mul_overflow(rows, columns, &count)) return std::nullopt;
  return count;
}

// The tag of an element of version 5.
struct Tag {
  uint32_t type = 0;
  uint64_t size = 0;
  uint64_t padding = 0;
  std::array<unsigned char, 4> inside{};  // the data of a small element
  bool is_small = false;
};

// Walks through one top-level element.
class Walk {
 public:
  Walk(Stream& stream, bool swapped, size_t element, size_t& count, const LeaveOut& leave_out)
      : stream_(stream), swapped_(swapped), element_(element), count_(count), leave_out_(leave_out) {}

  // The array at the current position, and moves to its end. Nothing when it is not offered. The members of a
  // structure have their names from it.
  std::optional<Array> array(const std::string* given, std::string_view path, int level) {
    const Tag tag = read_tag();
    if (tag.type != type_matrix) throw error_t("an array was expected");
    const uint64_t end = stream_.position() + tag.size;
    if (tag.size == 0) return std::nullopt;
    const std::vector<unsigned char> flags = data(type_uint32, 8);
    if (flags.size() < 8) throw error_t("array flags are damaged");
    const uint32_t first = number32(flags.data(), swapped_), kind = first & 0xFF;
    if (kind > last_numeric_class) {  // objects and functions have headers of their own
      const std::string name = given != nullptr ? *given : std::string();
      leave_out_(full_name(path, name), "it is an object or a function");
      // At the top nothing after it would be read, so there is no need to inflate it.
      if (given != nullptr) leave(end);
      return std::nullopt;
    }
    const std::vector<unsigned char> dimensions = data(type_int32, 1 << 10);
    const std::vector<unsigned char> name = data(type_int8, longest_name);
    Array found;
    found.name = given != nullptr
                     ? *given
                     : mirn3::str::to_utf8({reinterpret_cast<const char*>(name.data()), name.size()});
    const std::string full = full_name(path, found.name);
    if (++count_ > most_arrays) throw error_t("there are too many arrays");
    const char* reason = body(found, kind, (first & flag_complex) != 0, dimensions, end, full, level);
    if (reason != nullptr) leave_out_(full, reason);
    if (given != nullptr) leave(end);
    if (reason != nullptr) return std::nullopt;
    return found;
  }

 private:
  static std::string full_name(std::string_view path, std::string_view name) {
    return path.empty() ? std::string(name) : fmt::format("{:s}.{:s}", path, name);
  }

  void leave(uint64_t end) {
    if (stream_.position() > end) throw error_t("an array is longer than it says");
    stream_.skip(end - stream_.position());
  }

  Tag read_tag() {
    std::array<unsigned char, 8> bytes;
    stream_.read(bytes);
    Tag tag;
    const uint32_t first = number32(bytes.data(), swapped_), second = number32(bytes.data() + 4, swapped_);
    if (first >> 16 != 0) {
      tag = {first & 0xFFFF, first >> 16, 0, {}, true};
      if (tag.size > 4) throw error_t("a tag is damaged");
      std::memcpy(tag.inside.data(), bytes.data() + 4, 4);
    } else {
      tag = {first, second, (8 - second % 8) % 8, {}, false};
      if (tag.type == type_matrix) tag.padding = 0;
    }
    return tag;
  }

  // A whole small piece of a header.
  std::vector<unsigned char> data(uint32_t type, uint64_t most) {
    const Tag tag = read_tag();
    if (tag.type != type || tag.size > most) throw error_t("an array's header is damaged");
    std::vector<unsigned char> bytes(tag.size);
    if (tag.is_small) {
      std::memcpy(bytes.data(), tag.inside.data(), tag.size);
    } else {
      stream_.read(bytes);
      stream_.skip(tag.padding);
    }
    return bytes;
  }

  // Why the array is not offered; null when it is.
  const char* body(Array& found, uint32_t kind, bool is_complex, const std::vector<unsigned char>& dimensions,
                   uint64_t end, const std::string& full, int level) {
    if (kind == class_char) return "it is text";
    if (kind == class_cell) return "it is a cell array";
    if (kind == class_sparse) return "it is a sparse matrix";
    if (dimensions.size() != 8) return "it has more than two dimensions";
    found.rows = number32(dimensions.data(), swapped_);
    found.columns = number32(dimensions.data() + 4, swapped_);
    if (kind == class_struct) {
      if (found.rows != 1 || found.columns != 1) return "it is an array of structures";
      return members(found, end, full, level);
    }
    if (kind < class_double) return "it is an object";
    return numbers(found, is_complex, end);
  }

  const char* numbers(Array& found, bool is_complex, uint64_t end) {
    if (found.rows * found.columns == 0) return "it is empty";
    if (found.rows == 1 && found.columns == 1) return "it holds a single value";
    const std::optional<uint64_t> count = product(found.rows, found.columns);
    for (int part = 0; part < (is_complex ? 2 : 1); ++part) {
      const Tag tag = read_tag();
      const std::optional<Kind> kind = kind_of(tag.type);
      // A small element keeps its data inside its tag.
      const uint64_t offset = stream_.position() - (tag.is_small ? 4 : 0);
      if (!kind) return "its numbers are of an unknown type";
      if (!count || *count > tag.size / samples::width(*kind) || offset + tag.size > end)
        return "it claims more numbers than it holds";
      found.parts.push_back({{*kind, swapped_}, element_, offset});
      // Nothing after the last part is needed, and inflating it only to skip it would cost much.
      if (!tag.is_small && part == 0 && is_complex) stream_.skip(tag.size + tag.padding);
    }
    return nullptr;
  }

  const char* members(Array& found, uint64_t end, const std::string& full, int level) {
    if (level >= deepest) return "structures lie too deep";
    const std::vector<unsigned char> width_bytes = data(type_int32, 4);
    const uint32_t width = width_bytes.size() == 4 ? number32(width_bytes.data(), swapped_) : 0;
    const std::vector<unsigned char> names = data(type_int8, uint64_t{longest_name} << 8);
    if (width == 0 || width > longest_name) return "its member names are damaged";
    for (size_t at = 0; at + width <= names.size() && stream_.position() < end; at += width) {
      const char* text = reinterpret_cast<const char*>(names.data() + at);
      const std::string name = mirn3::str::to_utf8({text, strnlen(text, width)});
      try {
        std::optional<Array> child = array(&name, full, level + 1);
        if (child) found.children.push_back(std::move(*child));
      } catch (const error_t& damage) {
        leave_out_(fmt::format("{:s}.{:s}", full, name), damage.what());
        break;  // what was found before is good
      }
    }
    return found.children.empty() ? "no member is offered" : nullptr;
  }

  Stream& stream_;
  bool swapped_;
  size_t element_;
  size_t& count_;
  const LeaveOut& leave_out_;
};

void find_in_version5(Bytes file, bool swapped, Layout& layout, const LeaveOut& leave_out) {
  size_t count = 0;
  for (uint64_t at = 128; at + 8 <= file.size();) {
    const uint32_t type = number32(file.data() + at, swapped);
    const uint64_t size = number32(file.data() + at + 4, swapped), held = file.size() - at - 8;
    if (type == 0 || size == 0)
      return leave_out(fmt::format("byte {:d}", at), "the rest of the file is damaged");
    const bool cut = size > held;
    if (type == type_matrix || type == type_compressed) {
      Element element{at, 8 + std::min(size, held), false};
      if (type == type_compressed) element = {at + 8, std::min(size, held), true};
      layout.elements.push_back(element);
      try {
        const std::unique_ptr<Stream> stream = open_element(file, element);
        Walk walk(*stream, swapped, layout.elements.size() - 1, count, leave_out);
        if (std::optional<Array> array = walk.array(nullptr, {}, 0))
          layout.arrays.push_back(std::move(*array));
      } catch (const error_t& damage) {
        leave_out(fmt::format("byte {:d}", at), damage.what());
      }
    }
    if (cut) return leave_out(fmt::format("byte {:d}", at), "the file ends inside it");
    at += 8 + size;
  }
}

// The header of a matrix of version 4.
struct Header4 {
  uint32_t type = 0, rows = 0, columns = 0, is_complex = 0, name = 0;
  bool swapped = false;

  explicit Header4(const unsigned char* at) {
    type = number32(at, false);
    swapped = type > 9999;  // MOPT in decimal digits: machine, 0, number format, kind
    if (swapped) type = number32(at, true);
    rows = number32(at + 4, swapped);
    columns = number32(at + 8, swapped);
    is_complex = number32(at + 12, swapped);
    name = number32(at + 16, swapped);
  }

  bool is_sound() const {
    const bool big = type / 1000 == 1;
    return type / 1000 <= 1 && type / 100 % 10 == 0 && type / 10 % 10 <= 5 && type % 10 <= 2 &&
           is_complex <= 1 && name >= 1 && name <= longest_name &&
           big == (swapped == (std::endian::native == std::endian::little));
  }

  Number number() const {
    constexpr Kind kinds[] = {Kind::f64, Kind::f32, Kind::i32, Kind::i16, Kind::u16, Kind::u8};
    return {kinds[type / 10 % 10], swapped};
  }
};

void find_in_version4(Bytes file, Layout& layout, const LeaveOut& leave_out) {
  for (uint64_t at = 0; at + 20 <= file.size();) {
    const Header4 header(file.data() + at);
    if (!header.is_sound()) {
      if (at == 0) throw error_t("the file is not a MAT file of version 4 to 7, or its header is damaged");
      return leave_out(fmt::format("byte {:d}", at), "the rest of the file is damaged");
    }
    const std::optional<uint64_t> count = product(header.rows, header.columns);
    const uint64_t width = samples::width(header.number().kind), parts = 1 + header.is_complex;
    const uint64_t held = file.size() - at - 20;
    if (header.name > held || !count || *count > (held - header.name) / width / parts)
      return leave_out(fmt::format("byte {:d}", at), "it claims more numbers than the file holds");
    const char* text = reinterpret_cast<const char*>(file.data() + at + 20);
    Array array{mirn3::str::to_utf8({text, strnlen(text, header.name)}), header.rows, header.columns, {}, {}};
    const uint64_t bytes = *count * width, size = header.name + bytes * parts;
    if (header.type % 10 != 0) {
      leave_out(array.name, header.type % 10 == 1 ? "it is text" : "it is a sparse matrix");
    } else if (*count <= 1) {
      leave_out(array.name, *count == 0 ? "it is empty" : "it holds a single value");
    } else if (layout.arrays.size() < most_arrays) {
      layout.elements.push_back({at + 20 + header.name, bytes * parts, false});
      for (uint64_t part = 0; part < parts; ++part)
        array.parts.push_back({header.number(), layout.elements.size() - 1, part * bytes});
      layout.arrays.push_back(std::move(array));
    }
    at += 20 + size;
  }
}

}  // namespace

Layout find_arrays(Bytes file, const LeaveOut& leave_out) {
  Layout layout;
  // Version 4 has no header: its first four bytes are a small number, of which one byte is zero at least.
  if (file.size() >= 20 && std::memchr(file.data(), 0, 4) != nullptr) {
    find_in_version4(file, layout, leave_out);
    return layout;
  }
  if (file.size() < 128) throw error_t("the file is too short for a MAT file");
  const std::string_view order(reinterpret_cast<const char*>(file.data()) + 126, 2);
  if (order != "IM" && order != "MI")
    throw error_t("the file is not a MAT file of version 4 to 7, or its header is damaged");
  const bool is_little = order == "IM";
  find_in_version5(file, is_little != (std::endian::native == std::endian::little), layout, leave_out);
  return layout;
}

std::unique_ptr<Stream> open_element(Bytes file, const Element& element) {
  if (element.offset > file.size() || element.size > file.size() - element.offset)
    throw error_t("the file has become shorter");
  const Bytes bytes = file.subspan(element.offset, element.size);
  return element.compressed ? inflating_stream(bytes) : plain_stream(bytes);
}

}  // namespace mirn2::rd::mat
