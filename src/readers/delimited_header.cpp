// The head of a delimited file.
#include "readers/delimited_header.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "readers/delimited_rows.h"
#include "readers/delimited_scan.h"
#include "runtime/exc.h"
#include "runtime/sys.h"

namespace mirn2::rd {

namespace {

constexpr std::array<char, 4> candidates = {'\t', ',', ';', '|'};

constexpr size_t probed_lines = 3;
constexpr size_t header_search = 20;
constexpr size_t fewest_lines = 4;  // with fewer, the header is one line

// Each title costs some hundred bytes; a name row of nothing but delimiters must not cost gigabytes.
constexpr uint64_t most_titles = uint64_t{1} << 22;

constexpr size_t shown_characters = 40;

// A piece of a file's text that is safe to show.
std::string shown(std::string_view text) {
  std::string piece(text.substr(0, text.find_first_of("\r\n")).substr(0, shown_characters));
  std::replace_if(
      piece.begin(), piece.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return piece;
}

std::string_view delimiter_name(char delimiter) {
  switch (delimiter) {
    case '\t':
      return "tab";
    case ',':
      return "','";
    case ';':
      return "';'";
    default:
      return "'|'";
  }
}

std::string_view first_field(std::string_view line, char delimiter) {
  const char* end = scan::field_end(line.data(), line.data() + line.size(), delimiter);
  return line.substr(0, static_cast<size_t>(end - line.data()));
}

// The first character that a number or a time of day cannot contain; null when there is none.
const char* odd_character(std::string_view field) {
  const size_t at = field.find_first_not_of("0123456789 \t\n\v\f\r+,-.:EXex");
  return at != std::string_view::npos ? field.data() + at : nullptr;
}

struct Counts {
  std::array<uint64_t, candidates.size()> of{};
  std::string text;
};

// Delimiters in the first lines, at most `header_search` of them.
std::vector<Counts> count_candidates(std::string_view text, size_t lines) {
  std::vector<Counts> counts;
  LineWalk walk(text);
  std::string_view line;
  while (counts.size() < lines && walk.next(line)) {
    Counts& entry = counts.emplace_back();
    for (size_t i = 0; i < candidates.size(); ++i) {
      entry.of[i] = static_cast<uint64_t>(std::count(line.begin(), line.end(), candidates[i]));
    }
    entry.text = shown(line);
  }
  return counts;
}

std::string explain(std::string_view text) {
  if (text.empty()) return "The file is empty";
  if (text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff")) {
    return "The file is UTF-16 text; save it as UTF-8";
  }
  const std::vector<Counts> counts = count_candidates(text, header_search);

  // Three lines in a row that agree, further down: something stands above the titles.
  for (size_t line = 1; line + probed_lines <= counts.size(); ++line) {
    for (size_t i = 0; i < candidates.size(); ++i) {
      const uint64_t count = counts[line].of[i];
      if (count == 0 || counts[line + 1].of[i] != count || counts[line + 2].of[i] != count) continue;
      const size_t broken = line - 1;
      return fmt::format(
          "As delimited text, {} comes closest: lines {} to {} hold it {} times each, but line {} ('{}') "
          "holds "
          "it {} times; remove the {} line(s) above the titles",
          delimiter_name(candidates[i]), line + 1, line + 3, count, broken + 1, counts[broken].text,
          counts[broken].of[i], line);
    }
  }

  // Else the candidate that two of the first lines agree on, or the most frequent one.
  size_t best = 0;
  uint64_t best_score = 0;
  size_t broken = 0;
  for (size_t i = 0; i < candidates.size(); ++i) {
    std::array<uint64_t, probed_lines> found{};
    for (size_t line = 0; line < std::min(probed_lines, counts.size()); ++line)
      found[line] = counts[line].of[i];
    const uint64_t most = std::max({found[0], found[1], found[2]});
    const bool head = found[0] != 0 && found[0] == found[1];
    const bool tail = found[1] != 0 && found[1] == found[2];
    const bool outer = found[0] != 0 && found[0] == found[2];
    constexpr uint64_t agreement = uint64_t{1} << 62;
    const uint64_t score = std::min(most, agreement - 1) + (head || tail || outer ? agreement : 0);
    if (score <= best_score) continue;
    best = i;
    best_score = score;
    broken = head ? 2 : tail ? 0 : 1;
  }
  if (best_score == 0) return "As delimited text, none of tab , ; | separates fields in its first lines";
  if (broken >= counts.size()) {
    return fmt::format(
        "As delimited text, {} comes closest, but the file has only {} line(s): a row of titles and two rows "
        "of "
        "data are the least",
        delimiter_name(candidates[best]), counts.size());
  }
  const size_t other = broken == 0 ? 1 : 0;
  return fmt::format(
      "As delimited text, {} comes closest: line {} holds it {} times, but line {} ('{}') holds it {} times; "
      "the "
      "first three lines must hold it equally often",
      delimiter_name(candidates[best]), other + 1, counts[other].of[best], broken + 1, counts[broken].text,
      counts[broken].of[best]);
}

std::vector<std::string> split_titles(std::string_view row, char delimiter, std::string_view name) {
  std::vector<std::string> titles;
  const char* p = row.data();
  const char* end = p + row.size();
  for (bool is_time = true;; is_time = false) {
    const char* stop = scan::field_end(p, end, delimiter);
    if (!is_time) titles.emplace_back(p, stop);
    if (stop == end || *stop != delimiter) return titles;
    p = stop + 1;
    if (titles.size() == most_titles) {
      throw mirn3::exc::error_t(fmt::format(
          "File '{}' has more than {} columns; split it into files with fewer", name, most_titles));
    }
  }
}

}  // namespace

char probe_delimiter(const std::filesystem::path& path, std::string* explanation) {
  const mirn3::sys::Mapping mapping(path);
  const std::vector<Counts> counts = count_candidates(mapping.text(), probed_lines);
  if (counts.size() == probed_lines) {
    for (size_t i = 0; i < candidates.size(); ++i) {
      const uint64_t count = counts[0].of[i];
      if (count != 0 && counts[1].of[i] == count && counts[2].of[i] == count) return candidates[i];
    }
  }
  if (explanation != nullptr) *explanation = explain(mapping.text());
  return 0;
}

DelimitedHeader read_delimited_header(std::string_view text, char delimiter, std::string_view name) {
  std::vector<std::string_view> lines;
  std::string_view line;
  LineWalk walk(text);
  while (lines.size() < header_search && walk.next(line)) lines.push_back(line);

  DelimitedHeader header;
  if (lines.empty()) return header;
  header.titles = split_titles(lines[0], delimiter, name);

  if (lines.size() >= fewest_lines) {
    const auto is_data = [&](std::string_view row) {
      const std::string_view field = first_field(row, delimiter);
      return !field.empty() && odd_character(field) == nullptr;
    };
    header.lines =
        static_cast<uint64_t>(std::find_if(lines.begin() + 1, lines.end(), is_data) - lines.begin());
  }
  if (header.lines < lines.size()) {
    header.first_time = first_field(lines[header.lines], delimiter);
  } else if (lines.size() >= fewest_lines) {
    const std::string_view field = first_field(lines[1], delimiter);
    const char* odd = odd_character(field);
    const std::string reason = odd != nullptr ? fmt::format("the first field of line 2, '{}', contains '{}'",
                                                            shown(field), shown({odd, 1}))
                                              : "the first field of line 2 is empty";
    header.warning = fmt::format(
        "In the first {} lines of file '{}' no row begins with a plain number or time of day, so {} lines "
        "below the "
        "titles count as header and are not read: {}",
        lines.size(), name, lines.size() - 1, reason);
    if (walk.next(line)) header.first_time = first_field(line, delimiter);
  }
  return header;
}

}  // namespace mirn2::rd
