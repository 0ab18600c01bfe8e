// Reading ArduPilot text logs: the variable tree from the head, then one pass that finds the lines of
// every message, and for each load only the lines of its message.
#include "readers/ardupilot_txt.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <string_view>
#include <utility>

#include "readers/ardupilot_fields.h"
#include "readers/delimited_rows.h"
#include "readers/delimited_scan.h"
#include "readers/line_groups.h"
#include "readers/number_text.h"
#include "runtime/charge.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/par.h"
#include "runtime/str.h"
#include "runtime/sys.h"

namespace mirn2::rd {

namespace {

constexpr std::string_view declaration_mark = "FMT, ";
constexpr size_t block_lines = 1 << 14;  // what a thread takes at a time
constexpr size_t lines_ahead = 8;        // asked from memory before they are read

// Splits at a separator; a carriage return or line feed ends the text.
std::vector<std::string_view> split(std::string_view text, char separator) {
  text = text.substr(0, text.find_first_of("\r\n"));
  std::vector<std::string_view> parts;
  for (size_t end; (end = text.find(separator)) != std::string_view::npos; text.remove_prefix(end + 1)) {
    parts.push_back(text.substr(0, end));
  }
  parts.push_back(text);
  return parts;
}

std::map<std::string, TextMessage> read_head(std::string_view text) {
  std::map<std::string, TextMessage> messages;
  LineWalk lines(text);
  for (std::string_view line; lines.next(line) && line.find(declaration_mark) != std::string_view::npos;) {
    const auto words = split(line, ' ');
    if (words.size() < 6 || words[3].size() < 2) continue;
    TextMessage message{.format = std::string(words[4]), .labels = {}};
    for (const std::string_view label : split(words[5], ',')) message.labels.emplace_back(label);
    messages[std::string(words[3].substr(0, words[3].size() - 1))] = std::move(message);
  }
  return messages;
}

// From raw time stamps to seconds, where the label says what they are.
double time_scale(std::string_view label) noexcept {
  return label == "TimeMS" ? 0.001 : label == "TimeUS" ? 0.000001 : 1.0;
}

// Two fields of a message's lines on their way into samples.
struct Pass {
  std::string_view text;
  std::span<const uint64_t> lines;
  uint64_t time_word, value_word;  // words count from the message name, which is 0
  double scale;                    // of the time
  double* x;                       // null: the times are known
  double* y;
  scan::Level level = scan::best_level();
};

// Reads the lines [first, last) into the samples from `first` on; returns how many they gave.
size_t read_lines(const Pass& pass, size_t first, size_t last) noexcept {
  const char* const data = pass.text.data();
  const char* const end = data + pass.text.size();
  const uint64_t near = std::min(pass.time_word, pass.value_word);
  const uint64_t far = std::max(pass.time_word, pass.value_word);
  const auto pass_words = [&](const char* p, uint64_t n) {
    return scan::pass_fields(pass.level, p, end, end, ' ', n);
  };
  const auto number = [&](const char* p) { return read_number(p, scan::field_end(p, end, ' ')); };
  size_t sample = first;
  for (size_t i = first; i < last; ++i) {
    if (i + lines_ahead < last) __builtin_prefetch(data + pass.lines[i + lines_ahead]);
    const char* const near_text = pass_words(data + pass.lines[i], near);
    if (near_text == nullptr) continue;
    const char* const far_text = pass_words(near_text, far - near);
    if (far_text == nullptr) continue;
    const bool time_first = pass.time_word < pass.value_word;
    if (pass.x != nullptr) pass.x[sample] = number(time_first ? near_text : far_text) * pass.scale;
    pass.y[sample] = number(time_first ? far_text : near_text);
    ++sample;
  }
  return sample - first;
}

// Reads all lines on all cores; returns how many samples they gave.
size_t read_all(const Pass& pass) {
  const size_t blocks = (pass.lines.size() + block_lines - 1) / block_lines;
  std::vector<size_t> kept(blocks);
  mirn3::par::run(blocks, [&](size_t block) {
    const size_t first = block * block_lines;
    kept[block] = read_lines(pass, first, std::min(first + block_lines, pass.lines.size()));
  });
  size_t samples = 0;
  for (size_t block = 0; block < blocks; ++block) {
    const size_t first = block * block_lines;
    for (double* const values : {pass.x, pass.y}) {
      if (samples == first || values == nullptr) continue;
      std::memmove(values + samples, values + first, kept[block] * sizeof(double));
    }
    samples += kept[block];
  }
  return samples;
}

// Whether the line that begins there has no end yet and not all of these words either.
bool is_unfinished(std::string_view text, uint64_t line, uint64_t words) {
  const char* const end = text.data() + text.size();
  const char* const start = text.data() + line;
  return text.back() != '\n' && text.find('\n', line) == std::string_view::npos &&
         scan::pass_fields(scan::best_level(), start, end, end, ' ', words - 1) == nullptr;
}

}  // namespace

struct ReaderArduPilotTXT::Learned {
  Learned(const std::filesystem::path& path, const mirn3::sys::FileStamp& state,
          const std::vector<std::string>& names)
      : stamp(state), file(path), groups(file.text(), names, declaration_mark), charge(groups.bytes_held()) {}

  mirn3::sys::FileStamp stamp;
  mirn3::sys::Mapping file;
  LineGroups groups;                                     // by position in the names
  std::map<size_t, mirn3::shared_vector<double>> times;  // of messages in which every line gave a sample
  mirn3::mem::Charge charge;
};

ReaderArduPilotTXT::ReaderArduPilotTXT(std::filesystem::path source) : Reader(std::move(source)) {}

ReaderArduPilotTXT::~ReaderArduPilotTXT() = default;

void ReaderArduPilotTXT::scan() {
  auto declared = read_head(mirn3::sys::Mapping(path_).text());
  std::unordered_map<std::string, TextFieldLocation> places;
  std::vector<std::string> offered;
  VariableNode root;
  for (const auto& [name, message] : declared) {
    const auto time = std::find_if(message.labels.begin(), message.labels.end(),
                                   [](const auto& label) { return label.find("Time") != std::string::npos; });
    if (time == message.labels.end()) continue;
    const auto time_field = static_cast<uint64_t>(time - message.labels.begin());
    offered.push_back(name);
    const std::string shown = mirn3::str::to_utf8(name);
    VariableNode& group = root.children.emplace_back(VariableNode{shown, shown, {}});
    for (uint64_t k = 0; k < std::min(message.labels.size(), message.format.size()); ++k) {
      if (k == time_field || !ardupilot::is_offered(message.format[k])) continue;
      const std::string label = mirn3::str::to_utf8(message.labels[k]);
      const std::string full_name = compose_name(shown, label);
      group.children.push_back({label, full_name, {}});
      places[full_name] = {name, time_field, k};
    }
  }
  messages = std::move(declared);
  locations = std::move(places);
  offered_ = std::move(offered);
  root_ = std::move(root);
  forget();
}

std::shared_ptr<ReaderArduPilotTXT::Learned> ReaderArduPilotTXT::learn() {
  return kept_.current(path_, [&](const mirn3::sys::FileStamp& stamp) {
    return std::make_shared<Learned>(path_, stamp, offered_);
  });
}

void ReaderArduPilotTXT::forget() noexcept { kept_.drop(); }

void ReaderArduPilotTXT::load(rto_t& request) {
  const auto found = locations.find(std::string(request.name));
  if (found == locations.end()) return refuse_name(request);
  const TextFieldLocation& at = found->second;
  const TextMessage& message = messages.at(at.message);
  const std::shared_ptr<Learned> known = learn();
  const auto word =
      static_cast<size_t>(std::lower_bound(offered_.begin(), offered_.end(), at.message) - offered_.begin());
  const std::string_view text = known->file.text();
  std::span<const uint64_t> lines = known->groups.lines(word);
  if (!lines.empty() && is_unfinished(text, lines.back(), message.labels.size() + 1)) {
    lines = lines.first(lines.size() - 1);
  }

  const auto times = known->times.find(word);
  const bool has_times = times != known->times.end();
  mirn3::shared_vector<double> x, y;
  if (has_times) x = times->second;
  if (!has_times) x.resize_for_overwrite(lines.size());
  y.resize_for_overwrite(lines.size());
  Pass pass{.text = text,
            .lines = lines,
            .time_word = at.time_field + 1,
            .value_word = at.value_field + 1,
            .scale = time_scale(message.labels[at.time_field]),
            .x = has_times ? nullptr : x.data(),
            .y = y.data()};
  size_t samples = read_all(pass);
  if (has_times && samples < lines.size()) {  // some lines end between the other fields and this one
    x.make_unique();
    pass.x = x.data();
    samples = read_all(pass);
  }
  x.resize(samples);
  y.resize(samples);
  if (samples < lines.size()) {
    mirn3::log::write(
        mirn3::log::warning,
        fmt::format("Flight log '{}': {} of {} lines end before the value or the time of {} and "
                    "were skipped",
                    path_.string(), lines.size() - samples, lines.size(), request.name));
  }
  if (samples == lines.size() && !has_times) {
    known->times.emplace(word, x);
  }
  request.x = std::move(x);
  request.y = std::move(y);
}

}  // namespace mirn2::rd
