// Reading ArduPilot binary logs: the variable tree from the head, samples by one walk and many gathers.
//
// The file stays mapped between loads, with the places of its records and the time column of each
// message asked for so far. When a message's fields are loaded in order, the fields to come are decoded
// in the same pass, because fetching the records costs more than decoding them.
#include "readers/ardupilot_bin.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "readers/ardupilot_fields.h"
#include "readers/text_tags.h"
#include "runtime/charge.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/mem.h"
#include "runtime/par.h"
#include "runtime/str.h"

namespace mirn2::rd {

using ardupilot::FormatRecord;
using ardupilot::Letter;
using ardupilot::letter_of;
using ardupilot::Records;
using mirn3::shared_vector;

namespace {

// Notices when a message's fields are loaded one after another in their order.
class Sweep {
 public:
  // Takes note of a request for the `ordinal`-th of `count` variables of a message; true when the
  // following ones are likely to be asked for next.
  bool follows(uint8_t type, size_t ordinal, size_t count) noexcept {
    const bool next = type == type_ && ordinal == expected_;
    const bool next_message = type != type_ && ordinal == 0 && finished_;
    type_ = type;
    expected_ = ordinal + 1;
    finished_ = (next || next_message) && expected_ == count;
    return next || next_message;
  }

 private:
  uint8_t type_ = 0;
  size_t expected_ = SIZE_MAX;
  bool finished_ = false;
};

// A stretch of a type's records that all give a sample.
struct Piece {
  size_t sample;  // index of the first sample
  size_t record;  // index of the first record
  size_t count;
  uint64_t base;
  uint32_t length;
};

// The stretches whose records hold their first `needed` bytes.
std::vector<Piece> pieces_of(const Records& records, uint64_t needed) {
  std::vector<Piece> pieces;
  size_t samples = 0;
  for (size_t i = 0; i < records.runs.size(); ++i) {
    const ardupilot::Run& run = records.runs[i];
    const size_t end = i + 1 < records.runs.size() ? records.runs[i + 1].first : records.offsets.size();
    if (run.length < needed) continue;
    pieces.push_back({samples, run.first, end - run.first, run.base, run.length});
    samples += end - run.first;
  }
  return pieces;
}

// A field of a message. Its offset counts from the start of the record.
struct Field {
  const Letter* letter;
  uint64_t offset;
  double scale = 1.0;

  uint64_t end() const noexcept { return offset + letter->width; }
};

// A field on its way into a buffer of samples.
struct Column {
  Field field;
  double* out;
};

// What one pass over a message's records does.
struct Pass {
  const unsigned char* data;
  const uint32_t* offsets;
  std::span<const Piece> pieces;
  std::span<const Column> columns;
};

constexpr size_t block_records = 1024;     // their cache lines and results stay in the second-level cache
constexpr size_t least_samples = 1 << 15;  // fewer are not worth a thread

void decode_block(const Pass& pass, const Piece& piece, size_t first, size_t count) noexcept {
  const size_t sample = piece.sample + first;
  const std::span<const uint32_t> offsets{pass.offsets + piece.record + first, count};
  for (const Column& column : pass.columns) {
    const Field& field = column.field;
    if (field.end() <= piece.length) {
      field.letter->gather(pass.data + piece.base + field.offset, offsets, field.scale, column.out + sample);
    } else {
      std::fill_n(column.out + sample, count, std::numeric_limits<double>::quiet_NaN());
    }
  }
}

void decode(const Pass& pass, size_t samples) {
  const size_t least = std::max<size_t>(block_records, least_samples / (pass.columns.size() + 1));
  mirn3::par::ranges(samples, least, [&](size_t first, size_t last) {
    for (const Piece& piece : pass.pieces) {
      size_t from = std::max(first, piece.sample);
      const size_t to = std::min(last, piece.sample + piece.count);
      for (; from < to; from += std::min(block_records, to - from)) {
        decode_block(pass, piece, from - piece.sample, std::min(block_records, to - from));
      }
    }
  });
}

// The number of a text field. Takes a copy of it, in case another program writes into the mapped file.
double number_of(const unsigned char* field, size_t width, TextTags& tags) {
  char text[64];
  std::memcpy(text, field, width);
  return tags.number(ardupilot::fixed_text({text, width}));
}

void decode_text(const Pass& pass, const Column& column, TextTags& tags) {
  const size_t width = column.field.letter->width;
  for (const Piece& piece : pass.pieces) {
    double* const out = column.out + piece.sample;
    if (column.field.end() > piece.length) {
      std::fill_n(out, piece.count, std::numeric_limits<double>::quiet_NaN());
      continue;
    }
    const unsigned char* const text = pass.data + piece.base + column.field.offset;
    for (size_t i = 0; i < piece.count; ++i) {
      out[i] = number_of(text + pass.offsets[piece.record + i], width, tags) * column.field.scale;
    }
  }
}

// Splits at commas; a line end ends the text.
std::vector<std::string> split_labels(std::string_view text) {
  text = text.substr(0, text.find_first_of("\r\n"));
  std::vector<std::string> labels;
  for (size_t comma; (comma = text.find(',')) != std::string_view::npos; text.remove_prefix(comma + 1)) {
    labels.push_back(mirn3::str::to_utf8(text.substr(0, comma)));
  }
  labels.push_back(mirn3::str::to_utf8(text));
  return labels;
}

std::map<uint8_t, FormatRecord> read_head(const std::filesystem::path& path) {
  std::map<uint8_t, FormatRecord> formats;
  mirn3::sys::File file(path, mirn3::sys::read_binary);
  FormatRecord record;
  while (std::fread(&record, 1, sizeof record, file.stream()) == sizeof record &&
         record.id == ardupilot::format_type) {
    formats[record.type] = record;
  }
  return formats;
}

ardupilot::Lengths lengths_of(const std::map<uint8_t, FormatRecord>& formats) {
  ardupilot::Lengths lengths;
  lengths.fill(-1);
  for (const auto& [type, format] : formats) lengths[type] = format.length;
  return lengths;
}

}  // namespace

// An offered message, as the head declares it.
struct ReaderArduPilotBIN::Message {
  std::vector<std::string> labels;
  std::string letters;
  uint64_t time_field = 0;
  std::vector<uint64_t> offered;  // the fields that are variables, in order

  // The letter of a field, zero where the format is shorter than the labels.
  char letter(uint64_t field) const noexcept { return field < letters.size() ? letters[field] : '\0'; }

  uint64_t offset(uint64_t field) const noexcept {
    uint64_t sum = 0;
    for (uint64_t k = 0; k < field && k < letters.size(); ++k) sum += letter_of(letters[k]).width;
    return sum;
  }

  Field field(uint64_t index) const noexcept {
    return {&letter_of(letter(index)), ardupilot::header_size + offset(index)};
  }

  // From raw time stamps to seconds, where the label says what they are.
  double time_scale(uint64_t field) const noexcept {
    if (field >= labels.size()) return 1.0;
    if (labels[field] == "TimeMS") return 0.001;
    if (labels[field] == "TimeUS") return 0.000001;
    return 1.0;
  }
};

// What one state of the file has taught. Changed only by the one thread that is inside load().
struct ReaderArduPilotBIN::Learned {
  using Buffers = std::map<uint64_t, shared_vector<double>>;  // by field

  // The time column of a message.
  struct Times {
    bool known = false;
    uint64_t field = 0;
    shared_vector<double> values;
  };

  Learned(const std::filesystem::path& path, const mirn3::sys::FileStamp& state,
          const ardupilot::Lengths& lengths)
      : stamp(state), file(path), walk(ardupilot::walk(file.bytes(), lengths)), charge(walk.bytes_held()) {}

  // Hands over the values of a field if they were decoded ahead; drops what waits for another message.
  bool take_ready(uint8_t type, uint64_t field, shared_vector<double>& values);

  // Buffers for the numeric fields that come after the `ordinal`-th variable, as far as there is memory
  // to spare, and the columns that fill them.
  Buffers reserve_ahead(const Message& message, size_t ordinal, size_t samples,
                        std::vector<Column>& columns) const;

  mirn3::sys::FileStamp stamp;
  mirn3::sys::Mapping file;
  ardupilot::Walk walk;
  mirn3::mem::Charge charge;
  std::map<uint8_t, Times> times;
  Sweep sweep;
  uint8_t ready_type = 0;
  Buffers ready;  // fields of ready_type decoded ahead
};

bool ReaderArduPilotBIN::Learned::take_ready(uint8_t type, uint64_t field, shared_vector<double>& values) {
  if (ready_type != type) ready.clear();
  ready_type = type;
  auto taken = ready.extract(field);
  if (taken.empty()) return false;
  values = std::move(taken.mapped());
  return true;
}

ReaderArduPilotBIN::Learned::Buffers ReaderArduPilotBIN::Learned::reserve_ahead(
    const Message& message, size_t ordinal, size_t samples, std::vector<Column>& columns) const {
  Buffers ahead;
  uint64_t room = mirn3::mem::free_budget() / 4;
  columns.reserve(columns.size() + message.offered.size());
  for (size_t next = ordinal + 1; next < message.offered.size(); ++next) {
    const uint64_t index = message.offered[next];
    const Field field = message.field(index);
    if (field.letter->text || ready.contains(index)) continue;
    if (samples * sizeof(double) > room) break;
    room -= samples * sizeof(double);
    shared_vector<double> values;
    try {
      values.resize_for_overwrite(samples);
    } catch (const std::bad_alloc&) {
      break;
    }
    columns.push_back({field, values.data()});
    ahead.emplace(index, std::move(values));
  }
  return ahead;
}

ReaderArduPilotBIN::ReaderArduPilotBIN(std::filesystem::path source) : Reader(std::move(source)) {}

ReaderArduPilotBIN::~ReaderArduPilotBIN() = default;

void ReaderArduPilotBIN::scan() {
  auto declared = read_head(path_);
  std::unordered_map<std::string, FieldLocation> places;
  std::map<uint8_t, Message> messages;
  VariableNode root;
  for (const auto& [type, format] : declared) {
    Message message;
    message.labels = split_labels(ardupilot::fixed_text(format.labels));
    message.letters = ardupilot::fixed_text(format.format);
    const auto time = std::find_if(message.labels.begin(), message.labels.end(),
                                   [](const auto& label) { return label.find("Time") != std::string::npos; });
    if (time == message.labels.end()) continue;
    message.time_field = static_cast<uint64_t>(time - message.labels.begin());

    const std::string name = mirn3::str::to_utf8(ardupilot::fixed_text(format.name));
    VariableNode& group = root.children.emplace_back(VariableNode{name, name, {}});
    places[name] = {.type = type};
    for (uint64_t k = 0; k < message.labels.size(); ++k) {
      if (k == message.time_field || !ardupilot::is_offered(message.letter(k))) continue;
      const std::string full_name = compose_name(name, message.labels[k]);
      group.children.push_back({message.labels[k], full_name, {}});
      places[full_name] = {type, message.time_field, k, message.offset(message.time_field),
                           message.offset(k)};
      message.offered.push_back(k);
    }
    messages.emplace(type, std::move(message));
  }
  formats = std::move(declared);
  locations = std::move(places);
  messages_ = std::move(messages);
  root_ = std::move(root);
  forget();
}

std::shared_ptr<ReaderArduPilotBIN::Learned> ReaderArduPilotBIN::learn() {
  return kept_.current(path_, [&](const mirn3::sys::FileStamp& stamp) {
    auto fresh = std::make_shared<Learned>(path_, stamp, lengths_of(formats));
    if (fresh->walk.why != ardupilot::End::complete && reported_ != stamp) {
      const uint64_t end = fresh->walk.end, size = fresh->file.bytes().size();
      mirn3::log::write(
          mirn3::log::warning,
          fmt::format("Damaged flight log '{}': {} (byte {} of {}); {:.2f} % of the file was read",
                      path_.string(), ardupilot::describe(fresh->walk.why), end, size,
                      100.0 * static_cast<double>(end) / static_cast<double>(size)));
      reported_ = stamp;
    }
    return fresh;
  });
}

void ReaderArduPilotBIN::forget() noexcept { kept_.drop(); }

void ReaderArduPilotBIN::load(rto_t& request) {
  const auto found = locations.find(std::string(request.name));
  if (found == locations.end()) return refuse_name(request);
  const FieldLocation& at = found->second;
  const Message& message = messages_.at(at.type);
  const std::shared_ptr<Learned> known = learn();

  Field time = message.field(at.time_field);
  time.scale = message.time_scale(at.time_field);
  const Field value = message.field(at.value_field);
  const Records& records = known->walk.types[at.type];
  const std::vector<Piece> pieces = pieces_of(records, time.end());
  const size_t samples = pieces.empty() ? 0 : pieces.back().sample + pieces.back().count;

  // One pass fills everything below that is not known yet.
  std::vector<Column> columns;
  Learned::Times times = known->times[at.type];
  const bool has_times = times.known && times.field == at.time_field && !time.letter->text;
  if (!has_times) {
    times = {.known = true, .field = at.time_field, .values = {}};
    times.values.resize_for_overwrite(samples);
    if (!time.letter->text) columns.push_back({time, times.values.data()});
  }

  // A group's own name may go by another time field, and then by other records.
  const auto listed = at.time_field == message.time_field
                          ? std::find(message.offered.begin(), message.offered.end(), at.value_field)
                          : message.offered.end();
  Learned::Buffers ahead;
  shared_vector<double> y;
  bool decoded = false;
  if (listed != message.offered.end()) {
    const auto ordinal = static_cast<size_t>(listed - message.offered.begin());
    const bool in_order = known->sweep.follows(at.type, ordinal, message.offered.size());
    decoded = known->take_ready(at.type, at.value_field, y);
    if (!decoded && in_order) {
      ahead = known->reserve_ahead(message, ordinal, samples, columns);
    }
  }
  if (!decoded) {
    y.resize_for_overwrite(samples);
    if (!value.letter->text) columns.push_back({value, y.data()});
  }

  const Pass pass{known->file.bytes().data(), records.offsets.data(), pieces, columns};
  if (!columns.empty()) decode(pass, samples);
  if (time.letter->text || value.letter->text) {
    TextTags tags(request.tag_key);
    if (time.letter->text) decode_text(pass, {time, times.values.data()}, tags);
    if (value.letter->text) decode_text(pass, {value, y.data()}, tags);
    save_tags();
  }

  known->ready.merge(ahead);
  request.x = times.values;
  if (!time.letter->text) {
    known->times[at.type] = std::move(times);
  }
  request.y = std::move(y);
}

}  // namespace mirn2::rd
