// Workbooks of any bytes.
//
// Input: a byte that chooses what the rest is: a whole workbook, or one of its parts without the archive
// around it.
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "backends/xlsx/number_format.h"
#include "backends/xlsx/reader_xlsx.h"
#include "backends/xlsx/table.h"
#include "own_home.h"
#include "runtime/exc.h"

namespace {

namespace rd = mirn2::rd;
using namespace mirn2::rd::xlsx;

constexpr const char* shared =
    "<sst><si><t>time</t></si><si><t>a</t></si><si><t>2024-01-01</t></si><si/></sst>";

int file = -1;
std::string path;

void expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "Does not hold: %s\n", what);
  std::abort();
}

void load_all(rd::ReaderXLSX& reader, const std::vector<rd::VariableNode>& nodes) {
  for (const rd::VariableNode& node : nodes) {
    rd::rto_t request;
    request.tag_key = "fuzz";
    request.name = node.full_name;
    reader.load(request);
    expect(request.x.size() == request.y.size(), "as many times as values");
    load_all(reader, node.children);
  }
}

void read_whole(const std::string& content) {
  expect(ftruncate(file, 0) == 0, "truncate");
  expect(pwrite(file, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()), "write");
  rd::ReaderXLSX reader(path);
  reader.scan();
  load_all(reader, reader.variables());
}

// All columns at once and each alone must agree.
void read_sheet(const std::string& content) {
  Workbook book;
  book.styles = {Shown::number, Shown::date, Shown::clock, Shown::elapsed};
  Strings strings;
  TextSource shared_source(shared);
  strings.read_shared(shared_source);
  TextSource head(content);
  const TableLayout layout = read_layout(head, book, strings);
  if (layout.variables.empty()) return;
  TextSource all(content);
  const auto columns = read_columns(all, layout, book, strings, nullptr, 1 << 26);
  expect(columns.has_value(), "bound of bytes");
  for (const auto& variable : layout.variables) {
    const std::vector<uint32_t> only{variable.position};
    TextSource one(content);
    const auto alone = read_columns(one, layout, book, strings, &only, 0);
    const ColumnValues& a = (*columns)[variable.position];
    const ColumnValues& b = (*alone)[variable.position];
    expect(a.kind == b.kind && a.values.size() == b.values.size() && a.rows == b.rows, "alone as among all");
    expect(a.rows.empty() || a.rows.size() == a.values.size(), "a row for each value");
    for (size_t i = 0; i < a.values.size(); ++i) {
      expect(a.values[i] == b.values[i] || (std::isnan(a.values[i]) && std::isnan(b.values[i])), "values");
      if (i > 0) expect(a.row_of(i - 1) < a.row_of(i), "rows rise");
    }
    ColumnValues times = a;
    become_times(times, strings);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  give_own_home();
  file = memfd_create("workbook", 0);
  path = "/proc/self/fd/" + std::to_string(file);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 65536) return 0;
  const std::string content(reinterpret_cast<const char*>(data) + 1, size - 1);
  TextSource source(content);
  try {
    switch (data[0] % 6) {
      case 0:
        read_whole(content);
        break;
      case 1:
        read_relations(source);
        break;
      case 2:
        read_styles(source);
        break;
      case 3:
        Strings().read_shared(source);
        break;
      case 4:
        shown_by_code(content);
        break;
      default:
        read_sheet(content);
    }
  } catch (const mirn3::exc::error_t&) {
  }
  return 0;
}
