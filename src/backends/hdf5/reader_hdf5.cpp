// Walking an HDF5 file's groups, and loading one variable at a time.
#include "backends/hdf5/reader_hdf5.h"

#include <map>
#include <set>
#include <utility>

#include "backends/hdf5/probe.h"
#include "backends/hdf5/table.h"
#include "backends/left_out.h"
#include "readers/backend.h"
#include "readers/time_name.h"
#include "runtime/num_ramp.h"
#include "runtime/sys.h"

namespace mirn2::rd {

using hdf5::File;
using hdf5::Leaf;
using hdf5::Object;
using hdf5::Session;
using hdf5::Table;
using hdf5::Wanted;
using mirn3::sample_vector;
using mirn3::exc::error_t;
using samples::no_axis;

namespace {

constexpr int deepest_group = 64;
constexpr size_t most_links = 200'000;
constexpr size_t most_variables = 100'000;
constexpr size_t most_name_bytes = 64 << 20;  // of all variables

// The names in a group, in the order of their creation where the file keeps it, else by name.
// Counts the ones that are too long instead.
std::vector<std::string> link_names(hid_t group, size_t most, size_t& too_long) {
  struct Collected {
    std::vector<std::string> names;
    size_t most;
    size_t seen = 0, too_long = 0;
  } collected{.names = {}, .most = most};
  const H5L_iterate_t collect = [](hid_t, const char* name, const H5L_info_t*,
                                   void* data) noexcept -> herr_t {
    auto& into = *static_cast<Collected*>(data);
    if (++into.seen > into.most) return 1;
    try {
      if (strnlen(name, hdf5::longest_name + 1) > hdf5::longest_name) {
        ++into.too_long;
      } else {
        into.names.emplace_back(name);
      }
    } catch (const std::bad_alloc&) {
      return -1;
    }
    return 0;
  };
  unsigned order = 0;
  const hdf5::Properties creation(H5Gget_create_plist(group), "HDF5: group");
  H5Pget_link_creation_order(creation, &order);
  const bool by_creation = (order & H5P_CRT_ORDER_INDEXED) != 0;
  const H5_index_t index = by_creation ? H5_INDEX_CRT_ORDER : H5_INDEX_NAME;
  if (H5Literate(group, index, H5_ITER_INC, nullptr, collect, &collected) < 0)
    hdf5::fail("A group is damaged");
  too_long = collected.too_long;
  return std::move(collected.names);
}

}  // namespace

struct ReaderHDF5::Dataset {
  std::string path;  // in the file
  Table table;
  std::vector<size_t> variables;
};

struct ReaderHDF5::Variable {
  std::string full_name;
  size_t dataset;
  uint64_t column;
  size_t leaf;
  size_t axis = no_axis;  // the variable that holds its time
};

// What is known of one state of the file. Only the thread inside load() changes it.
struct ReaderHDF5::Learned {
  mirn3::sys::FileStamp stamp;
  std::map<size_t, sample_vector> axes;   // by variable
  std::map<size_t, sample_vector> ahead;  // read along with another variable of the same data set
  std::set<size_t> failing;               // data sets that the library fails on
  size_t last_dataset = SIZE_MAX;
};

// One walk over the file.
class ReaderHDF5::Scan {
 public:
  Scan(ReaderHDF5& reader, hid_t file, bool quiet)
      : reader_(reader), file_(file), inside_(hdf5::inside_only()), left_out_(reader.path(), !quiet) {}

  void run() {
    const Object root(H5Oopen(file_, "/", inside_), "The root group is damaged");
    H5O_info_t info;
    if (H5Oget_info2(root, &info, H5O_INFO_BASIC) < 0) hdf5::fail("The root group is damaged");
    groups_.insert(info.addr);
    reader_.root_.children = group(root, "", "", 0);
    left_out_.finish();
    if (reader_.variables_.empty()) {
      throw error_t(
          fmt::format("'{:s}' holds no data set that could be a time series: neither vectors nor "
                      "matrices of numbers or text{:s}",
                      reader_.path().string(), left_out_.first()));
    }
  }

 private:
  using Nodes = std::vector<VariableNode>;

  Nodes group(hid_t id, const std::string& path, const std::string& prefix, int depth) {
    Nodes nodes;
    samples::Axes axes;
    std::vector<size_t> own;                                // variables of this level
    std::vector<std::pair<size_t, std::string>> subgroups;  // position among the nodes, name of the link
    links_ += 1;
    size_t too_long = 0;
    const std::vector<std::string> names = link_names(id, most_links, too_long);
    if (too_long > 0) leave_out(path, fmt::format("{:d} names in it are too long", too_long));
    for (const std::string& link : names) {
      const std::string where = fmt::format("{:s}/{:s}", path, link);
      if (++links_ > most_links || reader_.variables_.size() >= most_variables) {
        leave_out(where, "the file holds too many objects");
        break;
      }
      try {
        member(id, link, where, prefix, depth, nodes, axes, own, subgroups);
      } catch (const error_t& damage) {
        leave_out(where, damage.what());
      }
    }
    for (const size_t i : own) {
      Variable& variable = reader_.variables_[i];
      const uint64_t rows = reader_.datasets_[variable.dataset].table.rows;
      if (variable.axis == no_axis) variable.axis = axes.of(rows);  // else it has time among its own members
    }
    for (const auto& [position, link] : subgroups) {
      const std::string where = fmt::format("{:s}/{:s}", path, link);
      try {
        const Object inner(H5Oopen(id, link.c_str(), inside_), "A group cannot be opened");
        nodes[position].children = group(inner, where, nodes[position].full_name, depth + 1);
      } catch (const error_t& damage) {
        leave_out(where, damage.what());
      }
    }
    std::erase_if(nodes, [&](const VariableNode& node) {
      return node.children.empty() && !reader_.index_.contains(node.full_name);
    });
    return nodes;
  }

  void member(hid_t id, const std::string& link, const std::string& where, const std::string& prefix,
              int depth, Nodes& nodes, samples::Axes& axes, std::vector<size_t>& own,
              std::vector<std::pair<size_t, std::string>>& subgroups) {
    H5L_info_t kind;
    if (H5Lget_info(id, link.c_str(), &kind, inside_) < 0) hdf5::fail("the link is damaged");
    if (kind.type != H5L_TYPE_HARD && kind.type != H5L_TYPE_SOFT)
      return leave_out(where, "links to other files are not followed");
    const Object object(H5Oopen(id, link.c_str(), inside_), "it cannot be opened");
    H5O_info_t info;
    if (H5Oget_info2(object, &info, H5O_INFO_BASIC) < 0) hdf5::fail("it is damaged");
    const std::string name = mirn3::str::to_utf8(link);
    VariableNode node{name, compose_name(prefix, name), {}};
    if (!names_.insert(node.full_name).second)
      return leave_out(where, "another object has the same full name");
    if (info.type == H5O_TYPE_DATASET) {
      const size_t before = reader_.variables_.size();
      dataset(object, where, node, axes);
      for (size_t i = before; i < reader_.variables_.size(); ++i) own.push_back(i);
      nodes.push_back(std::move(node));
    } else if (info.type == H5O_TYPE_GROUP) {
      if (depth == 0 && (link == "#refs#" || link == "#subsystem#")) return;  // what MATLAB's cells point to
      if (kind.type == H5L_TYPE_SOFT) return leave_out(where, "links to groups are not followed");
      if (depth >= deepest_group) return leave_out(where, "groups lie too deep");
      if (!groups_.insert(info.addr).second)
        return leave_out(where, "the group is offered under another name");
      if (H5Aexists(object, "MATLAB_sparse") > 0) return leave_out(where, "it is a sparse matrix");
      subgroups.emplace_back(nodes.size(), link);
      nodes.push_back(std::move(node));
    }
  }

  // Adds the variables of a data set, and to its node what lies inside.
  void dataset(hid_t id, const std::string& where, VariableNode& node, samples::Axes& axes) {
    Dataset entry{.path = where, .table = {}, .variables = {}};
    if (const char* reason = hdf5::describe(id, entry.table)) return leave_out(where, reason);
    const Table& table = entry.table;
    const size_t number = reader_.datasets_.size(), first = reader_.variables_.size();
    if (table.columns * table.leaves.size() > most_variables - first)
      return leave_out(where, "it holds too many columns");
    if (table.columns * table.leaves.size() * node.full_name.size() > most_name_bytes - name_bytes_)
      return leave_out(where, "the names are too long");
    name_bytes_ += table.columns * table.leaves.size() * node.full_name.size();
    samples::Axes inner;
    for (uint64_t column = 0; column < table.columns; ++column) {
      for (size_t leaf = 0; leaf < table.leaves.size(); ++leaf) {
        std::vector<std::string> steps = table.leaves[leaf].names;
        if (table.columns > 1) steps.insert(steps.begin(), "c" + std::to_string(column));
        const std::string full_name = insert(node, steps);
        const size_t variable = reader_.variables_.size();
        if (!reader_.index_.emplace(full_name, variable).second) continue;
        reader_.variables_.push_back({full_name, number, column, leaf, no_axis});
        entry.variables.push_back(variable);
        const std::string& last = steps.empty() ? node.name : steps.back();
        if (table.leaves[leaf].is_text() || last == "re" || last == "im") {
          axes.add_other(table.rows);
          continue;
        }
        const bool is_time = is_time_name(last);
        (steps.empty() ? axes : inner).offer({variable, table.rows, is_time});
        if (!steps.empty()) axes.offer({variable, table.rows, false});
      }
    }
    const size_t own_time = inner.named(table.rows);
    for (const size_t variable : entry.variables) reader_.variables_[variable].axis = own_time;
    reader_.datasets_.push_back(std::move(entry));
  }

  // The full name of the node that the steps lead to; makes the nodes on the way.
  static std::string insert(VariableNode& node, const std::vector<std::string>& steps) {
    VariableNode* at = &node;
    for (const std::string& step : steps) {
      if (at->children.empty() || at->children.back().name != step)
        at->children.push_back({step, compose_name(at->full_name, step), {}});
      at = &at->children.back();
    }
    return at->full_name;
  }

  void leave_out(const std::string& where, std::string_view reason) { left_out_.add(where, reason); }

  ReaderHDF5& reader_;
  hid_t file_;
  hdf5::Properties inside_;
  std::set<haddr_t> groups_;     // that were seen, so that circles end
  std::set<std::string> names_;  // full names in use
  size_t links_ = 0;
  size_t name_bytes_ = 0;  // names of data sets, once for each of their variables
  LeftOut left_out_;
};

// One load request.
class ReaderHDF5::Load {
 public:
  Load(Session& session, ReaderHDF5& reader, Learned& learned, std::string_view tag_key)
      : session_(session),
        reader_(reader),
        learned_(learned),
        tag_key_(tag_key),
        file_(hdf5::open_file(reader.path())),
        inside_(hdf5::inside_only()) {}

  sample_vector values(size_t variable) {
    if (const auto found = learned_.axes.find(variable); found != learned_.axes.end())
      return copy_of(found->second);
    if (const auto found = learned_.ahead.find(variable); found != learned_.ahead.end()) {
      sample_vector kept = std::move(found->second);
      learned_.ahead.erase(found);
      return kept;
    }
    return read(variable);
  }

  // The time, kept for the other variables that share it.
  sample_vector axis(size_t variable) {
    const auto found = learned_.axes.find(variable);
    if (found != learned_.axes.end()) return found->second;
    sample_vector time = values(variable);
    return learned_.axes.emplace(variable, std::move(time)).first->second;
  }

  sample_vector copy_of(const sample_vector& values) {
    const Session::Pause pause(session_);
    return values.clone();
  }

  bool created_tags() const noexcept { return created_tags_; }

 private:
  sample_vector new_vector(uint64_t samples) {
    const Session::Pause pause(session_);
    sample_vector values;
    values.resize_for_overwrite(samples);
    return values;
  }

  sample_vector read(size_t index) {
    const Variable& variable = reader_.variables_[index];
    const Dataset& known = reader_.datasets_[variable.dataset];
    const Object dataset(H5Oopen(file_, known.path.c_str(), inside_),
                         fmt::format("Variable '{:s}' cannot be opened", variable.full_name));
    Table now;
    if (H5Iget_type(dataset) != H5I_DATASET || hdf5::describe(dataset, now) != nullptr ||
        now.columns != known.table.columns || now.leaves.size() != known.table.leaves.size() ||
        !now.leaves[variable.leaf].same_layout(known.table.leaves[variable.leaf])) {
      throw error_t(
          fmt::format("'{:s}' has changed since it was opened; open it again", reader_.path().string()));
    }
    samples::check_size(now.rows, variable.full_name);
    hdf5::check_chunks(dataset, now, variable.full_name);
    if (learned_.failing.contains(variable.dataset)) throw hdf5::LibraryFails(variable.full_name);
    sample_vector values = new_vector(now.rows);
    const Leaf& leaf = now.leaves[variable.leaf];
    const Wanted own{variable.column, &leaf, values.data()};
    try {
      if (leaf.is_text()) {
        hdf5::read_texts(dataset, now, now.rows, own, tag_key_, variable.full_name, learned_.stamp.size);
        created_tags_ = true;
        return values;
      }
      std::vector<Wanted> wanted{own};
      std::map<size_t, sample_vector> ahead = room_for_others(index, now, wanted);
      hdf5::read_numbers(dataset, now, now.rows, wanted, variable.full_name, learned_.stamp.size);
      learned_.ahead.merge(ahead);
      return values;
    } catch (const hdf5::LibraryFails&) {
      learned_.failing.insert(variable.dataset);
      throw;
    }
  }

  // Decompressing a data set costs more than picking numbers from it: the load of a second variable also
  // reads the others, as far as the budget has room.
  std::map<size_t, sample_vector> room_for_others(size_t index, const Table& now,
                                                  std::vector<Wanted>& wanted) {
    std::map<size_t, sample_vector> others;
    const Variable& variable = reader_.variables_[index];
    if (std::exchange(learned_.last_dataset, variable.dataset) != variable.dataset) return others;
    uint64_t room = mirn3::mem::free_budget() / 2;
    for (const size_t other : reader_.datasets_[variable.dataset].variables) {
      const Variable& candidate = reader_.variables_[other];
      const uint64_t bytes = now.rows * sizeof(double);
      if (other <= index || now.leaves[candidate.leaf].is_text() || learned_.axes.contains(other)) continue;
      if (bytes > room) break;
      room -= bytes;
      sample_vector& values = others[other] = new_vector(now.rows);
      wanted.push_back({candidate.column, &now.leaves[candidate.leaf], values.data()});
    }
    return others;
  }

  Session& session_;
  ReaderHDF5& reader_;
  Learned& learned_;
  std::string_view tag_key_;
  File file_;
  hdf5::Properties inside_;
  bool created_tags_ = false;
};

ReaderHDF5::ReaderHDF5(std::filesystem::path source) : Reader(std::move(source)) {}
ReaderHDF5::~ReaderHDF5() = default;

void ReaderHDF5::scan() {
  const Session session;
  const auto scan_once = [](ReaderHDF5& reader, bool quiet) {
    const File file = hdf5::open_file(reader.path());
    Scan(reader, file, quiet).run();
  };
  const hdf5::Outcome outcome = hdf5::attempt(mirn3::sys::file_stamp(path_).size, [&] {
    ReaderHDF5 trial(path_);
    scan_once(trial, true);
  });
  if (!outcome.survived) {
    throw error_t(fmt::format("'{:s}' is damaged: the HDF5 library fails on it", path_.string()));
  }
  if (!outcome.failure.empty()) throw error_t(outcome.failure);
  scan_once(*this, false);
}

std::shared_ptr<ReaderHDF5::Learned> ReaderHDF5::learned() {
  return kept_.current(path_, [](const mirn3::sys::FileStamp& stamp) {
    auto fresh = std::make_shared<Learned>();
    fresh->stamp = stamp;
    return fresh;
  });
}

void ReaderHDF5::forget() noexcept { kept_.drop(); }

void ReaderHDF5::load(rto_t& request) {
  const auto found = index_.find(std::string(request.name));
  if (found == index_.end()) return refuse_name(request);
  const size_t variable = found->second, time = variables_[variable].axis;
  const std::shared_ptr<Learned> known = learned();
  sample_vector x, y;
  bool created_tags = false;
  {
    Session session;
    Load load(session, *this, *known, request.tag_key);
    y = load.values(variable);
    if (time == variable) x = load.copy_of(y);
    if (time != variable && time != no_axis) x = load.axis(time);
    created_tags = load.created_tags();
  }
  if (time == no_axis) x = mirn3::num::ramp(1.0, y.size());
  // In a file that is being recorded, one may be longer than the other by now.
  const uint64_t count = std::min(x.size(), y.size());
  x.resize(count);
  y.resize(count);
  if (time != no_axis) check_time_vector(*this, x);
  request.x.swap(x);
  request.y.swap(y);
  if (created_tags) save_tags();
}

}  // namespace mirn2::rd

KVALO_BACKEND(mirn2::rd::ReaderHDF5)
