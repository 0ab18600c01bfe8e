// Reads the bit-field definitions in unpack.csv.
#include "runtime/unpack_definitions.h"

#include <fmt/format.h>

#include <charconv>
#include <exception>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string_view>

#include "runtime/log.h"
#include "runtime/str.h"
#include "runtime/sys.h"

namespace mirn3::unpack {

namespace {

constexpr uintmax_t largest_file = uintmax_t{16} << 20;
constexpr size_t columns = 8;

std::mutex mutex;
std::vector<Definition> known;
std::optional<sys::FileStamp> read_at;  // what the file was like when it was read
std::filesystem::path read_from;

// The cells of a line; a quoted cell may hold commas, and quotes written twice.
std::vector<std::string> cells_of(std::string_view line) {
  std::vector<std::string> cells(1);
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') {
      cells.back() += line[++i];
    } else if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      cells.emplace_back();
    } else {
      cells.back() += c;
    }
  }
  for (std::string& cell : cells) cell = std::string(str::trimmed(cell));
  return cells;
}

template <typename Number>
Number number_of(const std::string& cell, const char* column, Number if_empty) {
  if (cell.empty()) return if_empty;
  Number value{};
  const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
  if (error != std::errc() || end != cell.data() + cell.size()) {
    throw std::runtime_error(fmt::format("'{}' is no number for {}", cell, column));
  }
  return value;
}

Definition definition_of(std::string_view line) {
  const std::vector<std::string> cells = cells_of(line);
  if (cells.size() != columns) {
    throw std::runtime_error(fmt::format("{} cells instead of {}", cells.size(), columns));
  }
  Definition made{.variable = cells[0],
                  .name = cells[1],
                  .msb = number_of<uint64_t>(cells[2], "msb", 0),
                  .lsb = number_of<uint64_t>(cells[3], "lsb", 0),
                  .base = number_of<uint64_t>(cells[4], "base", 0),
                  .gain = number_of<double>(cells[5], "gain", 1.0),
                  .bias = number_of<double>(cells[6], "bias", 0.0),
                  .type = cells[7]};
  if (made.variable.empty() || made.name.empty()) throw std::runtime_error("a name is missing");
  if (made.msb < made.lsb) throw std::runtime_error("msb is below lsb");
  if (made.lsb < made.base) throw std::runtime_error("lsb is below base");
  return made;
}

std::vector<Definition> read(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::vector<Definition> found;
  std::string line;
  for (size_t number = 1; std::getline(file, line); ++number) {
    std::string_view text = str::trimmed(line);
    if (number == 1 && text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    if (text.empty()) continue;
    if (number == 1 && str::to_lower(text).starts_with("variable,")) continue;
    try {
      found.push_back(definition_of(text));
    } catch (const std::exception& error) {
      log::write(log::warning, fmt::format("{}, line {}: {}", path.string(), number, error.what()));
    }
  }
  return found;
}

}  // namespace

void load() {
  const std::filesystem::path path = sys::config_path() / "unpack.csv";
  const std::lock_guard lock(mutex);
  std::error_code error;
  const uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size > largest_file) {
    if (!error) log::write(log::warning, fmt::format("{} is too large and is not read", path.string()));
    known.clear();
    read_at.reset();
    return;
  }
  const sys::FileStamp stamp = sys::file_stamp(path);
  if (read_at == stamp && read_from == path) return;
  known = read(path);
  read_at = stamp;
  read_from = path;
}

bool is_empty() {
  const std::lock_guard lock(mutex);
  return known.empty();
}

std::vector<Definition> definitions() {
  const std::lock_guard lock(mutex);
  return known;
}

}  // namespace mirn3::unpack
