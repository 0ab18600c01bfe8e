// From a data set's type and dimensions to a table of numbers.
#include <array>
#include <utility>

#include "backends/hdf5/table.h"

namespace mirn2::rd::hdf5 {

namespace {

using samples::Kind;

constexpr int most_levels = 16;
constexpr size_t most_leaves = 4096;
constexpr size_t longest_text = 1 << 20;

bool is_machine_order(hid_t type) {
  return H5Tget_order(type) == (std::endian::native == std::endian::little ? H5T_ORDER_LE : H5T_ORDER_BE);
}

class Describer {
 public:
  explicit Describer(std::vector<Leaf>& leaves) : leaves_(leaves) {}

  void add(hid_t type, size_t offset, int level) {
    if (level > most_levels || leaves_.size() >= most_leaves) return;
    switch (H5Tget_class(type)) {
      case H5T_INTEGER:
      case H5T_BITFIELD:
        return add_integer(type, offset);
      case H5T_ENUM:
        return add(Type(H5Tget_super(type), "HDF5: enumeration"), offset, level + 1);
      case H5T_FLOAT:
        return add_float(type, offset);
      case H5T_STRING:
        return add_text(type, offset);
      case H5T_COMPOUND:
        return add_members(type, offset, level);
      case H5T_ARRAY:
        return add_array(type, offset, level);
      default:
        return;  // references, opaque bytes, lists of varying length
    }
  }

 private:
  void put(Leaf::Form form, samples::Number number, size_t offset, size_t size) {
    leaves_.push_back({names_, route_, form, number, offset, size});
  }

  void add_integer(hid_t type, size_t offset) {
    const size_t size = H5Tget_size(type);
    const bool is_signed = H5Tget_class(type) == H5T_INTEGER && H5Tget_sign(type) == H5T_SGN_2;
    constexpr std::pair<Kind, Kind> kinds[] = {
        {Kind::u8, Kind::i8}, {Kind::u16, Kind::i16}, {Kind::u32, Kind::i32}, {Kind::u64, Kind::i64}};
    const bool is_whole = H5Tget_precision(type) == size * 8 && H5Tget_offset(type) == 0;
    for (const auto& [without, with] : kinds) {
      if (!is_whole || samples::width(without) != size) continue;
      return put(Leaf::Form::number, {is_signed ? with : without, !is_machine_order(type)}, offset, size);
    }
    // Bit fields have no conversion to floating point.
    const int first_bit = H5Tget_offset(type);
    const size_t bits = H5Tget_precision(type);
    const bool is_sound = first_bit >= 0 && bits > 0 && static_cast<size_t>(first_bit) + bits <= size * 8;
    if (H5Tget_class(type) == H5T_INTEGER && size <= 16 && is_sound)
      put(Leaf::Form::odd_number, {}, offset, size);
  }

  void add_float(hid_t type, size_t offset) {
    const size_t size = H5Tget_size(type);
    struct Layout {
      Kind kind;
      size_t size, exponent_at, exponent_bits;
    };
    constexpr Layout known[] = {{Kind::f16, 2, 10, 5}, {Kind::f32, 4, 23, 8}, {Kind::f64, 8, 52, 11}};
    size_t sign = 0, exponent = 0, exponent_bits = 0, fraction = 0, fraction_bits = 0;
    if (H5Tget_fields(type, &sign, &exponent, &exponent_bits, &fraction, &fraction_bits) < 0) return;
    const H5T_order_t order = H5Tget_order(type);
    const bool is_usual = H5Tget_precision(type) == size * 8 &&
                          (order == H5T_ORDER_LE || order == H5T_ORDER_BE) &&
                          H5Tget_norm(type) == H5T_NORM_IMPLIED;
    for (const Layout& layout : known) {
      if (!is_usual || layout.size != size || layout.exponent_at != exponent ||
          layout.exponent_bits != exponent_bits || fraction != 0 || sign != size * 8 - 1 ||
          H5Tget_ebias(type) != (size_t{1} << (exponent_bits - 1)) - 1)
        continue;
      return put(Leaf::Form::number, {layout.kind, !is_machine_order(type)}, offset, size);
    }
    // The library converts without looking whether the parts of a number lie inside it.
    const size_t bits = size * 8, first_bit = static_cast<size_t>(std::max(0, H5Tget_offset(type)));
    const bool is_sound = first_bit + H5Tget_precision(type) <= bits && sign < bits && exponent < bits &&
                          exponent_bits > 0 && exponent_bits <= 32 && exponent + exponent_bits <= bits &&
                          fraction < bits && fraction_bits > 0 && fraction_bits <= bits - fraction;
    if (size <= 16 && is_sound) put(Leaf::Form::odd_number, {}, offset, size);
  }

  void add_text(hid_t type, size_t offset) {
    const bool varies = H5Tis_variable_str(type) > 0;
    const size_t size = H5Tget_size(type);
    if (varies ? arrays_ == 0 : size <= longest_text)
      put(varies ? Leaf::Form::text : Leaf::Form::fixed_text, {}, offset, size);
  }

  void add_members(hid_t type, size_t offset, int level) {
    const int count = H5Tget_nmembers(type);
    for (int i = 0; i < count; ++i) {
      const auto member = static_cast<unsigned>(i);
      char* raw = H5Tget_member_name(type, member);
      if (raw == nullptr) continue;
      std::string name = raw;
      H5free_memory(raw);
      if (name.size() > longest_name) continue;
      // Complex numbers are pairs, called one way by Python's writers and another by MATLAB's.
      if (count == 2 && (name == "r" || name == "real")) name = "re";
      if (count == 2 && (name == "i" || name == "imag")) name = "im";
      names_.push_back(mirn3::str::to_utf8(name));
      route_.push_back(member);
      add(Type(H5Tget_member_type(type, member), "HDF5: member"), offset + H5Tget_member_offset(type, member),
          level + 1);
      names_.pop_back();
      route_.pop_back();
    }
  }

  void add_array(hid_t type, size_t offset, int level) {
    hsize_t length = 0;
    if (H5Tget_array_ndims(type) != 1 || H5Tget_array_dims2(type, &length) < 0) return;
    ++arrays_;
    const Type element(H5Tget_super(type), "HDF5: array");
    const size_t size = H5Tget_size(element);
    const size_t before = leaves_.size();
    for (hsize_t i = 0; i < length && leaves_.size() < most_leaves; ++i) {
      if (i > 0 && leaves_.size() == before) break;  // nothing in one, nothing in all
      names_.push_back("c" + std::to_string(i));
      route_.push_back(static_cast<unsigned>(i));
      add(element, offset + i * size, level + 1);
      names_.pop_back();
      route_.pop_back();
    }
    --arrays_;
  }

  std::vector<Leaf>& leaves_;
  std::vector<std::string> names_;
  std::vector<unsigned> route_;
  int arrays_ = 0;  // around the type that is being looked at
};

// MATLAB marks its data sets; its matrices lie transposed, and its characters look like numbers.
struct Matlab {
  bool is_marked = false;
  bool is_text_or_empty = false;
};

Matlab matlab_marks(hid_t dataset) {
  Matlab marks;
  if (H5Aexists(dataset, "MATLAB_class") <= 0) return marks;
  marks.is_marked = true;
  marks.is_text_or_empty = H5Aexists(dataset, "MATLAB_empty") > 0;
  using Attribute = Handle<H5Aclose>;
  const Attribute attribute(H5Aopen(dataset, "MATLAB_class", H5P_DEFAULT), "HDF5: MATLAB_class");
  const Type stored(H5Aget_type(attribute), "HDF5: MATLAB_class");
  const Space space(H5Aget_space(attribute), "HDF5: MATLAB_class");
  if (H5Tget_class(stored) != H5T_STRING || H5Tis_variable_str(stored) != 0 ||
      H5Sget_simple_extent_npoints(space) != 1)
    return marks;
  const Type text(H5Tcopy(H5T_C_S1), "HDF5: text type");
  std::array<char, 32> name{};
  H5Tset_size(text, name.size());
  if (H5Aread(attribute, text, name.data()) >= 0) {
    name.back() = '\0';
    for (const char* other : {"char", "cell", "function_handle"}) {
      if (std::string_view(name.data()) == other) marks.is_text_or_empty = true;
    }
  }
  return marks;
}

const char* describe_shape(hid_t dataset, bool transposed, Table& table) {
  const Space space(H5Dget_space(dataset), "HDF5: dimensions");
  table.rank = H5Sget_simple_extent_ndims(space);
  if (H5Sget_simple_extent_type(space) != H5S_SIMPLE || table.rank < 1) return "holds a single value or none";
  if (table.rank > 2) return "has more than two dimensions";
  hsize_t length[2] = {0, 1};
  H5Sget_simple_extent_dims(space, length, nullptr);
  table.row_dimension = transposed ? 1 : 0;
  if (table.rank == 1) {
    table.row_dimension = 0;
  } else if (length[0] == 1 && length[1] == 1) {
    return "holds a single value";
  } else if (length[0] == 1 || length[1] == 1) {
    table.row_dimension = length[0] == 1 ? 1 : 0;  // a vector, whichever way it lies
  }
  table.rows = length[table.row_dimension];
  table.columns = table.rank == 1 ? 1 : length[1 - table.row_dimension];
  if (table.columns == 0) return "is empty";
  return table.columns > samples::most_columns ? "has too many columns" : nullptr;
}

// Storage in one piece must hold what the dimensions promise: the library copies without looking.
bool storage_is_too_small(hid_t dataset, hid_t type, hid_t creation, const Table& table) {
  const H5D_layout_t layout = H5Pget_layout(creation);
  if (layout == H5D_CHUNKED) {
    // Looking for a first and a last chunk reads the index.
    hsize_t chunk[2] = {1, 1}, stored = 0;
    if (H5Pget_chunk(creation, table.rank, chunk) != table.rank || chunk[0] == 0 || chunk[1] == 0)
      return true;
    hsize_t at[2] = {0, 0};
    H5Dget_chunk_storage_size(dataset, at, &stored);
    if (table.rows == 0) return false;
    const auto row_of = static_cast<size_t>(table.row_dimension);
    at[row_of] = (table.rows - 1) / chunk[row_of] * chunk[row_of];
    H5Dget_chunk_storage_size(dataset, at, &stored);
    return false;
  }
  if (!is_stored_as_read(type)) return false;
  const uint64_t stored = H5Dget_storage_size(dataset);
  if (layout == H5D_CONTIGUOUS && stored == 0) return false;  // never written: all fill values
  uint64_t needed = 0;
  return __builtin_mul_overflow(table.rows, table.columns, &needed) ||
         __builtin_mul_overflow(needed, H5Tget_size(type), &needed) || stored < needed;
}

}  // namespace

bool is_stored_as_read(hid_t type) {
  for (const H5T_class_t kind : {H5T_VLEN, H5T_REFERENCE}) {
    if (H5Tdetect_class(type, kind) != 0) return false;
  }
  if (H5Tget_class(type) != H5T_COMPOUND) return H5Tis_variable_str(type) <= 0;
  const int count = H5Tget_nmembers(type);
  for (int i = 0; i < count; ++i) {
    const Type member(H5Tget_member_type(type, static_cast<unsigned>(i)), "HDF5: member");
    if (H5Tget_class(member) == H5T_ARRAY && H5Tdetect_class(member, H5T_STRING) != 0) return false;
    if (!is_stored_as_read(member)) return false;
  }
  return true;
}

const char* describe(hid_t dataset, Table& table) {
  const Matlab marks = matlab_marks(dataset);
  if (marks.is_text_or_empty) return "holds no numbers";
  if (const char* reason = describe_shape(dataset, marks.is_marked, table)) return reason;
  const Properties creation(H5Dget_create_plist(dataset), "HDF5: layout");
  if (H5Pget_layout(creation) == H5D_VIRTUAL || H5Pget_external_count(creation) > 0)
    return "lies in other files, which are not followed";
  const Type type(H5Dget_type(dataset), "HDF5: type");
  table.leaves.clear();
  if (storage_is_too_small(dataset, type, creation, table)) return "claims more than is stored";
  Describer(table.leaves).add(type, 0, 0);
  const size_t element = H5Tget_size(type);
  if (element == 0) return "has elements of no size";
  for (const Leaf& leaf : table.leaves) {
    if (leaf.size > element || leaf.offset > element - leaf.size)
      return "has elements with parts outside them";
  }
  return table.leaves.empty() ? "has elements that are neither numbers nor text" : nullptr;
}

}  // namespace mirn2::rd::hdf5
