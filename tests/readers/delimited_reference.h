// What a delimited file holds, worked out line by line and field by field with nothing clever: the
// measure for the fast reader in tests and in the fuzz target.
#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/str.h"
#include "runtime/tag.h"
#include "runtime/utc.h"

namespace reference {

struct Series {
  std::vector<double> x, y;
};

class DelimitedFile {
 public:
  DelimitedFile(std::string content, char delimiter) : delimiter_(delimiter) {
    if (content.substr(0, 3) == "\xef\xbb\xbf") content.erase(0, 3);
    ends_in_feed_ = content.empty() || content.back() == '\n';
    std::istringstream in(content);
    for (std::string line; std::getline(in, line);) {
      if (!in.eof()) line += '\n';
      lines_.push_back(line.substr(0, line.find('\0')));
    }
    detect_header();
    if (!lines_.empty()) {
      const std::vector<std::string> titles = split(lines_[0]);
      for (size_t i = 1; i < titles.size(); ++i) titles_.push_back(mirn3::str::to_utf8(titles[i]));
    }
    cut_rows();
  }

  const std::vector<std::string>& titles() const { return titles_; }
  size_t header_lines() const { return header_lines_; }
  size_t line_count() const { return lines_.size(); }
  size_t rows() const { return rows_.size(); }
  // The last one counts.
  size_t column(const std::string& title) const {
    return static_cast<size_t>(titles_.rend() - std::find(titles_.rbegin(), titles_.rend(), title));
  }

  Series load(size_t column, std::string_view tag_key) const {
    Series series;
    if (rows_.empty()) return series;
    const int32_t time_type = mirn3::utc::guess_type(rows_.front().front());
    std::vector<double> times;
    for (const auto& row : rows_) times.push_back(mirn3::utc::to_double(row.front(), time_type));
    if (time_type == mirn3::utc::time_of_day) mirn3::utc::unroll_midnight(times);

    const std::string first = column < rows_[0].size() ? rows_[0][column] : "";
    const bool hexadecimal = first.size() > 1 && first[0] == '0' && (first[1] == 'x' || first[1] == 'X');
    const bool text = !first.empty() && std::isalpha(static_cast<unsigned char>(first[0])) != 0;
    for (size_t i = 0; i < rows_.size(); ++i) {
      if (column >= rows_[i].size() || rows_[i][column].empty()) continue;
      const std::string& field = rows_[i][column];
      series.x.push_back(times[i]);
      series.y.push_back(hexadecimal ? static_cast<double>(std::strtoll(field.c_str(), nullptr, 16))
                         : text      ? mirn3::tag::fetch_or_create(tag_key, field)
                                     : number(field));
    }
    check_times(series.x);
    return series;
  }

  static double number(std::string_view text) {
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() ? value : std::numeric_limits<double>::quiet_NaN();
  }

 private:
  std::vector<std::string> split(const std::string& line) const {
    std::vector<std::string> fields(1);
    for (const char c : line) {
      if (c == '\n' || c == '\r') break;
      if (c == delimiter_) fields.emplace_back();
      if (c != delimiter_) fields.back() += c;
    }
    return fields;
  }

  void detect_header() {
    const size_t looked_at = std::min<size_t>(lines_.size(), 20);
    if (looked_at < 4) return;
    for (header_lines_ = 1; header_lines_ < looked_at; ++header_lines_) {
      const std::string field = split(lines_[header_lines_])[0];
      if (!field.empty() && field.find_first_not_of("0123456789 \t\v\f+,-.:EXex") == std::string::npos)
        return;
    }
  }

  void cut_rows() {
    for (size_t i = header_lines_; i < lines_.size() && lines_[i].size() >= 2; ++i) {
      const bool unfinished = i + 1 == lines_.size() && !ends_in_feed_;
      std::vector<std::string> fields = split(lines_[i]);
      if (unfinished && !rows_.empty() && fields.size() < rows_[0].size()) break;
      rows_.push_back(std::move(fields));
    }
  }

  static void check_times(std::vector<double>& x) {
    if (x.empty()) return;
    const size_t m = std::min<size_t>(x.size(), 512);
    if (!(x[m - 1] > x[0]) || !std::is_sorted(x.begin(), x.begin() + m)) std::iota(x.begin(), x.end(), 0);
  }

  char delimiter_;
  std::vector<std::string> lines_;
  bool ends_in_feed_ = true;
  size_t header_lines_ = 1;
  std::vector<std::string> titles_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace reference
