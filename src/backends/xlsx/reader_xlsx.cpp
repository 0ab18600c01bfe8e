// Reads XLSX workbooks: one group of variables for each sheet.
#include "backends/xlsx/reader_xlsx.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "backends/xlsx/package.h"
#include "backends/xlsx/read_ahead.h"
#include "backends/xlsx/strings.h"
#include "backends/xlsx/table.h"
#include "backends/xlsx/workbook.h"
#include "readers/backend.h"
#include "runtime/charge.h"
#include "runtime/exc.h"
#include "runtime/mem.h"
#include "runtime/sys.h"
#include "runtime/tag.h"

namespace mirn2::rd {

namespace {

using namespace xlsx;

// Of the budget, the share that may be filled with columns nobody has asked for.
constexpr uint64_t share_kept = 4;

struct KeptColumn {
  Columns columns;
  bool is_complete;  // all columns of the sheet, not only those asked for
  mirn3::mem::Charge charge;
};

// The x and y of one variable: rows where both the time and the value are there.
void join(const ColumnValues* time, const ColumnValues& column, rto_t& request) {
  const size_t count = column.values.size();
  request.x.resize_for_overwrite(count);
  request.y.resize_for_overwrite(count);
  double* const x = request.x.data();
  double* const y = request.y.data();
  size_t filled = 0, at = 0;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t row = column.row_of(i);
    double when = row;
    if (time != nullptr) {
      while (at < time->values.size() && time->row_of(at) < row) ++at;
      if (at == time->values.size()) break;
      when = time->row_of(at) == row ? time->values[at] : NAN;
      if (std::isnan(when)) continue;
    }
    x[filled] = when;
    y[filled++] = column.values[i];
  }
  request.x.resize(filled);
  request.y.resize(filled);
}

// The numbers that the tag table has for the texts of a column. True if there are any.
bool tag_texts(const Strings& strings, std::string_view tag_key, std::span<double> values) {
  std::unordered_map<double, double> tags;
  for (double& value : values) {
    if (std::isnan(value)) continue;
    const auto [known, is_new] = tags.try_emplace(value);
    if (is_new) known->second = mirn3::tag::fetch_or_create(tag_key, strings[static_cast<uint64_t>(value)]);
    value = known->second;
  }
  return !tags.empty();
}

}  // namespace

class ReaderXLSX::Learned {
 public:
  struct Place {
    size_t sheet;
    uint32_t column;
  };

  const mirn3::sys::FileStamp stamp;

  explicit Learned(const std::filesystem::path& path)
      : stamp(mirn3::sys::file_stamp(path)), package_(path), book_(read_workbook(package_)) {
    if (!book_.strings_part.empty()) strings_.read_shared(*package_.open(book_.strings_part));
    for (const Workbook::Sheet& sheet : book_.sheets) {
      TableLayout layout = read_layout(*package_.open(sheet.part), book_, strings_);
      if (layout.variables.empty()) continue;
      tables_.push_back({sheet, std::move(layout)});
    }
    if (tables_.empty())
      throw mirn3::exc::error_t(fmt::format("'{:s}' has no sheet with data", path.string()));
    kept_.resize(tables_.size());
    text_charge_.add(strings_.bytes());
  }

  // The variable tree, and where the variables' columns are; of equal names the last.
  std::vector<VariableNode> tree(std::unordered_map<std::string, size_t>& index) {
    std::vector<VariableNode> nodes;
    places_.clear();
    for (size_t i = 0; i < tables_.size(); ++i) {
      const bool is_group = tables_.size() > 1;
      const std::string prefix = is_group ? tables_[i].sheet.name : "";
      if (is_group) nodes.push_back({prefix, prefix, {}});
      std::vector<VariableNode>& level = is_group ? nodes.back().children : nodes;
      for (const auto& variable : tables_[i].layout.variables) {
        std::string full_name = compose_name(prefix, variable.name);
        index[full_name] = places_.size();
        places_.push_back({i, variable.position});
        level.push_back({variable.name, std::move(full_name), {}});
      }
    }
    return nodes;
  }
  const Place& place(size_t number) const { return places_[number]; }

  void load(const Place& place, rto_t& request) {
    const TableLayout& layout = tables_[place.sheet].layout;
    const KeptColumn& kept = columns_of(place);
    const ColumnValues& column = kept.columns[place.column];
    join(layout.time ? &kept.columns[*layout.time] : nullptr, column, request);
    if (column.kind == ColumnKind::text && tag_texts(strings_, request.tag_key, request.y.span()))
      save_tags();
  }

 private:
  struct Table {
    Workbook::Sheet sheet;
    TableLayout layout;
  };

  const KeptColumn& columns_of(const Place& place) {
    std::unique_ptr<KeptColumn>& kept = kept_[place.sheet];
    if (kept && (kept->is_complete || kept->columns[place.column].kind != ColumnKind::unknown)) return *kept;
    Table& table = tables_[place.sheet];
    const uint64_t most_bytes = mirn3::mem::memory_bank / share_kept;
    const auto read = [&](const std::vector<uint32_t>* only) {
      ReadAhead sheet(package_.open(table.sheet.part));
      return read_columns(sheet, table.layout, book_, strings_, only, most_bytes);
    };
    // A sheet that turned out to be too large for all of its columns stays so.
    auto columns = kept ? std::nullopt : read(nullptr);
    const bool is_complete = columns.has_value();
    if (!columns) {
      std::vector<uint32_t> only{place.column};
      if (table.layout.time) only.push_back(*table.layout.time);
      columns = read(&only);
    }
    if (table.layout.time) {
      ColumnValues& time = (*columns)[*table.layout.time];
      if (time.kind == ColumnKind::text && !become_times(time, strings_)) {
        warn(fmt::format(
            "Sheet '{:s}': the time column holds texts that are not time stamps; rows are counted instead",
            table.sheet.name));
        table.layout.time.reset();
      }
    }
    uint64_t bytes = 0;
    for (const ColumnValues& column : *columns) bytes += column.bytes();
    kept =
        std::make_unique<KeptColumn>(KeptColumn{*std::move(columns), is_complete, mirn3::mem::Charge(bytes)});
    return *kept;
  }

  Package package_;
  Workbook book_;
  Strings strings_;
  std::vector<Table> tables_;
  std::vector<Place> places_;
  std::vector<std::unique_ptr<KeptColumn>> kept_;  // by table
  mirn3::mem::Charge text_charge_;
};

ReaderXLSX::ReaderXLSX(std::filesystem::path source) : Reader(std::move(source)) {}
ReaderXLSX::~ReaderXLSX() = default;

std::shared_ptr<ReaderXLSX::Learned> ReaderXLSX::learn() {
  if (auto known = kept_.of(mirn3::sys::file_stamp(path_))) return known;
  auto learned = std::make_shared<Learned>(path_);
  std::unordered_map<std::string, size_t> index;
  std::vector<VariableNode> nodes = learned->tree(index);
  if (root_.children.empty()) root_.children = std::move(nodes);
  index_ = std::move(index);
  return kept_.keep(std::move(learned));
}

void ReaderXLSX::scan() { learn(); }

void ReaderXLSX::load(rto_t& request) {
  const std::shared_ptr<Learned> learned = learn();
  const auto found = index_.find(std::string(request.name));
  if (found == index_.end()) return refuse_name(request);
  rto_t filled;
  filled.tag_key = request.tag_key;
  learned->load(learned->place(found->second), filled);
  check_time_vector(*this, filled.x);
  request.x = std::move(filled.x);
  request.y = std::move(filled.y);
}

void ReaderXLSX::forget() noexcept { kept_.drop(); }

}  // namespace mirn2::rd

KVALO_BACKEND(mirn2::rd::ReaderXLSX)
