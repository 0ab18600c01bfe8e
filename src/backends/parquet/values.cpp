// Decoding column chunks, batch by batch, straight into the sample buffers.
#include "backends/parquet/values.h"

#include <arrow/util/decimal.h>
#include <arrow/util/float16.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <type_traits>
#include <vector>

#include "runtime/exc.h"

namespace mirn2::rd {

namespace {

using parquet::LogicalType;

constexpr size_t batch_rows = 1 << 15;      // the batch's values and levels stay in the second-level cache
constexpr size_t longest_text = 64 * 1024;  // what is longer is data, not the name of a state

constexpr auto powers_of_ten = [] {
  std::array<double, 23> powers{};  // all exact
  double power = 1.0;
  for (double& entry : powers) {
    entry = power;
    power *= 10.0;
  }
  return powers;
}();

constexpr int64_t exact_integers = int64_t{1} << 53;

int64_t ticks_of(LogicalType::TimeUnit::unit unit) {
  switch (unit) {
    case LogicalType::TimeUnit::MILLIS:
      return 1'000;
    case LogicalType::TimeUnit::MICROS:
      return 1'000'000;
    case LogicalType::TimeUnit::NANOS:
      return 1'000'000'000;
    default:
      return 1;
  }
}

// Seconds, rounded once as far as the whole seconds are exact in a double.
double seconds_of(int64_t value, int64_t ticks) noexcept {
  if (value > -exact_integers && value < exact_integers) {
    return static_cast<double>(value) / static_cast<double>(ticks);
  }
  return static_cast<double>(value / ticks) + static_cast<double>(value % ticks) / static_cast<double>(ticks);
}

// The double nearest to a decimal text.
double nearest(const std::string& text) noexcept {
  double value = 0.0;
  std::from_chars(text.data(), text.data() + text.size(), value);  // too small to tell from 0 stays 0
  return value;
}

double decimal_of(int64_t value, int32_t scale) {
  const bool exact = value >= -exact_integers && value <= exact_integers && scale >= 0 &&
                     static_cast<size_t>(scale) < powers_of_ten.size();
  return exact ? static_cast<double>(value) / powers_of_ten[static_cast<size_t>(scale)]
               : nearest(arrow::Decimal128(value).ToString(scale));
}

double decimal_of(const uint8_t* bytes, int32_t width, int32_t scale) {
  if (width <= 0) return 0.0;
  if (width <= 8) {
    uint64_t bits = (bytes[0] & 0x80) != 0 ? ~uint64_t{0} : 0;
    for (int32_t i = 0; i < width; ++i) bits = bits << 8 | bytes[i];
    return decimal_of(static_cast<int64_t>(bits), scale);
  }
  if (width <= 16) {
    const auto decimal = arrow::Decimal128::FromBigEndian(bytes, width).ValueOrDie();
    const auto low = static_cast<int64_t>(decimal.low_bits());
    if (decimal.high_bits() == (low < 0 ? -1 : 0)) return decimal_of(low, scale);
    return nearest(decimal.ToString(scale));
  }
  const auto decimal = arrow::Decimal256::FromBigEndian(bytes, width);
  if (!decimal.ok()) throw mirn3::exc::error_t("a decimal number is wider than 32 bytes");
  return nearest(decimal->ToString(scale));
}

// Seconds since the Unix epoch.
double seconds_of(const parquet::Int96& stamp) noexcept {
  constexpr int64_t epoch_day = 2'440'588;
  constexpr int64_t day = 86'400, nano = 1'000'000'000;
  const auto of_day = static_cast<int64_t>(uint64_t{stamp.value[1]} << 32 | stamp.value[0]);
  const int64_t days = static_cast<int64_t>(stamp.value[2]) - epoch_day;
  int64_t nanoseconds = 0;
  if (!__builtin_mul_overflow(days, day * nano, &nanoseconds) &&
      !__builtin_add_overflow(nanoseconds, of_day, &nanoseconds)) {
    return seconds_of(nanoseconds, nano);
  }
  // Centuries from the epoch.
  return static_cast<double>(days * day + of_day / nano) + seconds_of(of_day % nano, nano);
}

// Moves the batch's values, which lie close together, to the rows that have one; the others are missing.
void spread(double* out, const std::vector<int16_t>& levels, size_t rows, size_t values, int16_t present) {
  for (size_t row = rows; row-- > 0;) {
    out[row] = levels[row] == present && values > 0 ? out[--values] : missing;
  }
}

// The rows of a chunk and how far they have been filled.
struct Target {
  double* out;
  size_t rows;
  size_t done = 0;
  bool seen_missing = false;

  size_t next() const noexcept { return std::min(batch_rows, rows - done); }

  // Takes in a batch of `values` values for `levels` rows. False at the end of the chunk.
  bool take(int64_t levels, int64_t values, const std::vector<int16_t>& definition, int16_t present) {
    if (levels <= 0) return false;
    if (values < levels) {
      seen_missing = true;
      spread(out + done, definition, static_cast<size_t>(levels), static_cast<size_t>(values), present);
    }
    done += static_cast<size_t>(levels);
    return true;
  }
};

void require_complete(const Target& target) {
  if (target.done == target.rows) return;
  throw mirn3::exc::error_t(
      fmt::format("a column ends after {} of {} rows of its row group", target.done, target.rows));
}

// The fast way, for values that lie in the pages as they are in memory. False: the other way has to be taken.
template <typename DType, typename Convert>
bool read_pages_as(const Chunk& chunk, const Target& target, const Convert& convert) {
  using T = typename DType::c_type;
  constexpr bool direct = std::is_same_v<T, double>;
  PackedPages packed = chunk.pages();
  if (packed.reader == nullptr) return false;
  DensePages pages(std::move(packed), chunk.column, chunk.pool);
  double* out = target.out;
  std::vector<T> batch;
  const auto room = [&](size_t count) {
    if constexpr (direct) {
      return std::pair(out, static_cast<size_t>(out - target.out) * sizeof(T));
    } else {
      constexpr size_t before = 16;  // values; room for levels
      if (batch.size() < before + count) batch.resize(before + count);
      return std::pair(batch.data() + before, before * sizeof(T));
    }
  };
  return read_dense<DType>(pages, target.rows, room, [&](const T* values, size_t count) {
    if constexpr (!direct) convert(values, count, out);
    out += count;
  });
}

// convert(values, count, out) turns a batch into doubles.
template <typename DType, typename Convert>
bool read_as(const Chunk& chunk, Target target, const Convert& convert) {
  using T = typename DType::c_type;
  constexpr bool direct = std::is_same_v<T, double>;
  if constexpr (std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) {
    if (read_pages_as<DType>(chunk, target, convert)) return false;
  }
  const auto untyped = chunk.reader();
  auto& reader = static_cast<parquet::TypedColumnReader<DType>&>(*untyped);
  const int16_t present = reader.descr()->max_definition_level();
  std::vector<int16_t> levels(present > 0 ? std::min(batch_rows, target.rows) : 0);
  const auto batch = std::make_unique_for_overwrite<T[]>(direct ? 0 : std::min(batch_rows, target.rows));
  while (target.done < target.rows && reader.HasNext()) {
    double* const out = target.out + target.done;
    T* values = batch.get();
    if constexpr (direct) values = out;
    int64_t found = 0;
    const int64_t rows = reader.ReadBatch(static_cast<int64_t>(target.next()),
                                          levels.empty() ? nullptr : levels.data(), nullptr, values, &found);
    if constexpr (!direct) convert(values, static_cast<size_t>(found), out);
    if (!target.take(rows, found, levels, present)) break;
  }
  require_complete(target);
  return target.seen_missing;
}

// convert(value) turns one value into a double.
template <typename DType, typename Convert>
bool read_each(const Chunk& chunk, const Target& target, const Convert& convert) {
  using T = typename DType::c_type;
  return read_as<DType>(chunk, target, [&](const T* values, size_t count, double* out) {
    for (size_t i = 0; i < count; ++i) out[i] = convert(values[i]);
  });
}

template <typename DType, typename Unsigned>
bool read_unsigned(const Chunk& chunk, const Target& target) {
  return read_each<DType>(chunk, target,
                          [](auto value) { return static_cast<double>(static_cast<Unsigned>(value)); });
}

template <typename DType>
bool read_integers(const Chunk& chunk, const Target& target, const Meaning& meaning) {
  if (meaning.ticks != 1) {
    return read_each<DType>(chunk, target,
                            [&](auto value) { return seconds_of(int64_t{value}, meaning.ticks); });
  }
  const auto factor = static_cast<double>(meaning.seconds);
  return read_each<DType>(chunk, target, [=](auto value) { return static_cast<double>(value) * factor; });
}

double text_of(const parquet::ByteArray& bytes, const TextNumber& text_number) {
  if (bytes.len > longest_text) {
    throw mirn3::exc::error_t(fmt::format(
        "the column holds {} bytes in one row, which is data and not a text to be listed", bytes.len));
  }
  return text_number(static_cast<std::string_view>(bytes));
}

// A chunk whose pages all refer to one dictionary: every different text is looked up once.
bool read_dictionary(parquet::ColumnReader& untyped, Target target, const TextNumber& text_number) {
  auto& reader = static_cast<parquet::ByteArrayReader&>(untyped);
  const int16_t present = reader.descr()->max_definition_level();
  std::vector<int16_t> levels(present > 0 ? std::min(batch_rows, target.rows) : 0);
  std::vector<int32_t> indices(std::min(batch_rows, target.rows));
  std::vector<double> numbers;
  while (target.done < target.rows && reader.HasNext()) {
    double* const out = target.out + target.done;
    int64_t found = 0;
    const parquet::ByteArray* texts = nullptr;
    int32_t count = 0;
    const int64_t rows = reader.ReadBatchWithDictionary(static_cast<int64_t>(target.next()),
                                                        levels.empty() ? nullptr : levels.data(), nullptr,
                                                        indices.data(), &found, &texts, &count);
    if (numbers.size() < static_cast<size_t>(count)) numbers.resize(static_cast<size_t>(count), missing);
    for (size_t i = 0; i < static_cast<size_t>(found); ++i) {
      const auto index = static_cast<size_t>(indices[i]);
      if (indices[i] < 0 || index >= numbers.size()) {
        throw mirn3::exc::error_t("a row refers to a text that its dictionary does not have");
      }
      if (is_missing(numbers[index])) numbers[index] = text_of(texts[index], text_number);
      out[i] = numbers[index];
    }
    if (!target.take(rows, found, levels, present)) break;
  }
  require_complete(target);
  return target.seen_missing;
}

Meaning integers_of(const parquet::ColumnDescriptor& column, Stored as_signed, Stored as_unsigned) {
  Meaning meaning{.stored = as_signed};
  const LogicalType& logical = *column.logical_type();
  if (logical.is_int()) {
    const auto& type = static_cast<const parquet::IntLogicalType&>(logical);
    if (!type.is_signed()) meaning.stored = as_unsigned;
  } else if (logical.is_timestamp()) {
    meaning.ticks = ticks_of(static_cast<const parquet::TimestampLogicalType&>(logical).time_unit());
  } else if (logical.is_time()) {
    meaning.ticks = ticks_of(static_cast<const parquet::TimeLogicalType&>(logical).time_unit());
  } else if (logical.is_date()) {
    meaning.seconds = 86'400;
  } else if (logical.is_decimal()) {
    meaning.stored = as_signed == Stored::integer32 ? Stored::decimal32 : Stored::decimal64;
    meaning.scale = static_cast<const parquet::DecimalLogicalType&>(logical).scale();
  }
  return meaning;
}

Meaning bytes_of(const parquet::ColumnDescriptor& column, Stored as_decimal, Stored otherwise) {
  const LogicalType& logical = *column.logical_type();
  if (logical.is_decimal()) {
    return {.stored = as_decimal,
            .scale = static_cast<const parquet::DecimalLogicalType&>(logical).scale(),
            .byte_width = column.type_length()};
  }
  if (logical.is_float16() && column.type_length() == 2) return {.stored = Stored::real16};
  const bool plain = logical.is_string() || logical.is_enum() || logical.is_JSON() || !logical.is_valid() ||
                     logical.is_none();
  return {.stored = plain ? otherwise : Stored::nothing_offered};
}

}  // namespace

Meaning meaning_of(const parquet::ColumnDescriptor& column, int64_t duration_ticks) {
  switch (column.physical_type()) {
    case parquet::Type::BOOLEAN:
      return {.stored = Stored::boolean};
    case parquet::Type::INT32:
      return integers_of(column, Stored::integer32, Stored::unsigned32);
    case parquet::Type::INT64: {
      Meaning meaning = integers_of(column, Stored::integer64, Stored::unsigned64);
      if (duration_ticks != 0) meaning.ticks = duration_ticks;
      return meaning;
    }
    case parquet::Type::INT96:
      return {.stored = Stored::julian};
    case parquet::Type::FLOAT:
      return {.stored = Stored::real32};
    case parquet::Type::DOUBLE:
      return {.stored = Stored::real64};
    case parquet::Type::BYTE_ARRAY:
      return bytes_of(column, Stored::decimal_bytes, Stored::text);
    case parquet::Type::FIXED_LEN_BYTE_ARRAY:
      return bytes_of(column, Stored::decimal_fixed, Stored::nothing_offered);
    default:
      return {};
  }
}

bool read_chunk(const Chunk& chunk, const Meaning& meaning, size_t rows, double* out,
                const TextNumber& text_number) {
  const Target target{.out = out, .rows = rows};
  const auto number = [](auto value) { return static_cast<double>(value); };
  switch (meaning.stored) {
    case Stored::boolean:
      return read_each<parquet::BooleanType>(chunk, target, number);
    case Stored::integer32:
      return read_integers<parquet::Int32Type>(chunk, target, meaning);
    case Stored::unsigned32:
      return read_unsigned<parquet::Int32Type, uint32_t>(chunk, target);
    case Stored::integer64:
      return read_integers<parquet::Int64Type>(chunk, target, meaning);
    case Stored::unsigned64:
      return read_unsigned<parquet::Int64Type, uint64_t>(chunk, target);
    case Stored::real16:
      return read_each<parquet::FLBAType>(chunk, target, [](const parquet::FLBA& value) {
        return arrow::util::Float16::FromLittleEndian(value.ptr).ToDouble();
      });
    case Stored::real32:
      return read_each<parquet::FloatType>(chunk, target, number);
    case Stored::real64:
      return read_each<parquet::DoubleType>(chunk, target, number);
    case Stored::decimal32:
      return read_each<parquet::Int32Type>(
          chunk, target, [&](int32_t value) { return decimal_of(int64_t{value}, meaning.scale); });
    case Stored::decimal64:
      return read_each<parquet::Int64Type>(chunk, target,
                                           [&](int64_t value) { return decimal_of(value, meaning.scale); });
    case Stored::decimal_bytes:
      return read_each<parquet::ByteArrayType>(chunk, target, [&](const parquet::ByteArray& value) {
        return decimal_of(value.ptr, static_cast<int32_t>(std::min(value.len, 1u << 20)), meaning.scale);
      });
    case Stored::decimal_fixed:
      return read_each<parquet::FLBAType>(chunk, target, [&](const parquet::FLBA& value) {
        return decimal_of(value.ptr, meaning.byte_width, meaning.scale);
      });
    case Stored::julian:
      return read_each<parquet::Int96Type>(chunk, target,
                                           [](const parquet::Int96& value) { return seconds_of(value); });
    case Stored::text:
      if (const auto reader = chunk.reader();
          reader->GetExposedEncoding() == parquet::ExposedEncoding::DICTIONARY) {
        return read_dictionary(*reader, target, text_number);
      }
      return read_each<parquet::ByteArrayType>(
          chunk, target, [&](const parquet::ByteArray& value) { return text_of(value, text_number); });
    case Stored::nothing_offered:
      break;
  }
  throw mirn3::exc::error_t("the column's type cannot be read");
}

}  // namespace mirn2::rd
