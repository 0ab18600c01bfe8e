// The delimited text reader against the plain reference, on any bytes.
//
// Input: delimiter, order of loads, repetitions, tail, size of pieces; then the file. The lines behind
// the first are repeated, and a tail behind an empty line keeps the end of the memory away, so that small
// inputs reach the vector loops, too.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../tests/readers/delimited_reference.h"
#include "own_home.h"
#include "readers/delimited.h"
#include "readers/delimited_rows.h"
#include "readers/delimited_scan.h"

namespace {

namespace scan = mirn2::rd::scan;

constexpr std::string_view delimiters = "\t,;| :.5-e";
constexpr const char* tag_key = "fuzz";

int file = -1;
std::string path;

void expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "Differs: %s\n", what);
  std::abort();
}

bool same(std::span<const double> fast, std::span<const double> plain) {
  return fast.size() == plain.size() &&
         (fast.empty() || std::memcmp(fast.data(), plain.data(), fast.size_bytes()) == 0);
}

void write_file(std::string_view content) {
  expect(ftruncate(file, 0) == 0, "truncate");
  expect(pwrite(file, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()), "write");
}

// All fields of all rows at one level, in walks of `step` fields that go on where the last one ended.
std::vector<std::vector<double>> read_all(scan::Level level, const mirn2::rd::DelimitedRows& rows,
                                          char delimiter, size_t fields, size_t step) {
  std::vector<std::vector<double>> columns(fields, std::vector<double>(rows.rows()));
  std::vector<uint64_t> odd(fields);
  for (size_t piece = 0; piece < rows.pieces(); ++piece) {
    const scan::RowSpan span = rows.span(piece);
    std::vector<uint32_t> left(span.rows);
    for (size_t first = 0; first < fields; first += step) {
      const size_t count = std::min(step, fields - first);
      std::vector<double*> out;
      for (size_t k = 0; k < count; ++k) out.push_back(columns[first + k].data() + rows.first_row_of(piece));
      scan::read_numbers(level, {.span = span,
                                 .delimiter = delimiter,
                                 .column = first,
                                 .fields = count,
                                 .time_first = first == 0,
                                 .from = first != 0 ? left.data() : nullptr,
                                 .from_column = first,
                                 .to = left.data(),
                                 .out = out.data(),
                                 .odd = odd.data() + first,
                                 .past_caches = first % 2 != 0});
    }
  }
  columns.emplace_back(odd.begin(), odd.end());
  return columns;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  give_own_home();
  file = memfd_create("delimited", 0);
  path = "/proc/self/fd/" + std::to_string(file);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t switches = 5;
  if (size < switches || size > 4096) return 0;
  const char delimiter = delimiters[data[0] % delimiters.size()];
  const uint8_t order = data[1];
  const size_t repetitions = data[2] % 24;
  const bool tail = data[3] % 2 != 0;
  const size_t piece_bytes = 1 + data[4];

  std::string content(reinterpret_cast<const char*>(data) + switches, size - switches);
  const size_t feed = content.find('\n');
  const std::string body = feed != std::string::npos ? content.substr(feed + 1) : "";
  for (size_t i = 0; i < repetitions; ++i) content += body;
  if (tail) content += "\n\n" + std::string(1000, '7');
  write_file(content);

  const reference::DelimitedFile plain(content, delimiter);
  mirn2::rd::ReaderDelimited reader(path, delimiter);
  reader.scan();
  expect(reader.header_lines == plain.header_lines(), "header lines");
  expect(reader.variables().size() == plain.titles().size(), "number of titles");
  const size_t columns = plain.titles().size();
  for (size_t i = 0; i < columns; ++i) expect(reader.variables()[i].name == plain.titles()[i], "title");

  for (size_t i = 0; i < std::min<size_t>(columns, 40); ++i) {
    const size_t at = order % 4 == 0 ? i : (i * (order / 4) + order % 4) % columns;
    const std::string& name = plain.titles()[at];
    const reference::Series expected = plain.load(plain.column(name), tag_key);
    mirn2::rd::rto_t request;
    request.tag_key = tag_key;
    request.name = name;
    reader.load(request);
    expect(same(request.x.span(), expected.x), "times");
    expect(same(request.y.span(), expected.y), "values");
    expect(reader.row_capacity == plain.line_count() + 100, "line count");
    if (order % 16 == 15) reader.forget();
  }

  const mirn2::rd::DelimitedRows rows(path, delimiter, plain.header_lines(), piece_bytes);
  expect(rows.rows() == plain.rows(), "rows of pieces");
  const size_t fields = std::min<size_t>(columns + 2, 36);
  const auto fast = read_all(scan::best_level(), rows, delimiter, fields, 1 + order % scan::most_fields);
  const auto slow = read_all(scan::Level::plain, rows, delimiter, fields, 1);
  for (size_t i = 0; i < slow.size(); ++i) {
    if (i == 0 || i == fields) continue;  // plain levels leave every time unread
    expect(same(fast[i], slow[i]), "levels");
  }
  return 0;
}
