// The head of a delimited file: which delimiter, how many header lines, which titles.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace mirn2::rd {

// The delimiter of a text file: the first of tab , ; | that each of the first three lines holds equally
// often, and at least once; 0 when there is none. Then `explanation`, if given, gets a sentence on which
// one came closest and what broke it. Throws mirn3::exc::error_t when the file cannot be read.
char probe_delimiter(const std::filesystem::path& path, std::string* explanation = nullptr);

struct DelimitedHeader {
  uint64_t lines = 1;               // lines before the first data row
  std::string warning;              // not empty: rows were taken for header lines, and why
  std::string first_time;           // the first field of the first data row
  std::vector<std::string> titles;  // of the columns after the time column
};

// Reads the head of the file's text. `name` is the file's name for messages. Throws mirn3::exc::error_t
// when there are more titles than a person can have meant.
DelimitedHeader read_delimited_header(std::string_view text, char delimiter, std::string_view name);

}  // namespace mirn2::rd
