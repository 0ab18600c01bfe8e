// The variables of a MAT file, and loading one at a time.
#include "backends/mat/reader_mat.h"

#include <map>
#include <optional>
#include <set>
#include <utility>

#include "backends/left_out.h"
#include "backends/mat/layout.h"
#include "readers/backend.h"
#include "readers/time_name.h"
#include "runtime/charge.h"
#include "runtime/num_ramp.h"
#include "runtime/par.h"
#include "runtime/sys.h"

namespace mirn2::rd {

using mirn3::shared_vector;
using mirn3::exc::error_t;
using samples::no_axis;

namespace {

constexpr size_t most_variables = 100'000;

}  // namespace

struct ReaderMAT::Variable {
  std::string full_name;
  mat::Numbers numbers;
  uint64_t samples;
  uint64_t first;  // the number at which the column begins
  size_t axis = no_axis;

  uint64_t offset() const noexcept { return numbers.offset + first * samples::width(numbers.number.kind); }
  uint64_t bytes() const noexcept { return samples * samples::width(numbers.number.kind); }
};

struct ReaderMAT::Elements {
  mirn3::sys::FileStamp stamp;
  std::vector<mat::Element> list;
};

// Inflated bytes and time vectors, kept for the next load. Only the thread inside load() changes them.
struct ReaderMAT::Learned {
  mirn3::sys::FileStamp stamp;

  void keep(size_t element, std::vector<unsigned char> content) {
    drop();
    charge.add(content.size());
    inflated = std::move(content);
    inflated_element = element;
  }
  void drop() noexcept {
    inflated = {};
    charge = {};
    inflated_element = SIZE_MAX;
  }

  size_t last_element = SIZE_MAX;
  size_t inflated_element = SIZE_MAX;
  std::vector<unsigned char> inflated;
  mirn3::mem::Charge charge;
  std::map<size_t, shared_vector<double>> axes;  // by variable
};

// From arrays to variables, with their time axes.
class ReaderMAT::Tree {
 public:
  explicit Tree(ReaderMAT& reader) : left_out(reader.path()), reader_(reader) {}

  std::vector<VariableNode> level(std::vector<mat::Array>& arrays, const std::string& prefix) {
    std::vector<VariableNode> nodes;
    samples::Axes axes;
    const size_t first = reader_.variables_.size();
    for (mat::Array& array : arrays) {
      if (!array.parts.empty()) add(array, prefix, nodes, axes);
    }
    for (size_t i = first; i < reader_.variables_.size(); ++i) {
      Variable& variable = reader_.variables_[i];
      variable.axis = axes.of(variable.samples);
    }
    for (mat::Array& array : arrays) {
      if (array.children.empty()) continue;
      VariableNode node{array.name, compose_name(prefix, array.name), {}};
      if (!names_.insert(node.full_name).second) continue;
      node.children = level(array.children, node.full_name);
      if (!node.children.empty()) nodes.push_back(std::move(node));
    }
    return nodes;
  }

  LeftOut left_out;

 private:
  void add(const mat::Array& array, const std::string& prefix, std::vector<VariableNode>& nodes,
           samples::Axes& axes) {
    const bool is_vector = array.rows == 1 || array.columns == 1;
    const uint64_t samples = is_vector ? array.rows * array.columns : array.rows;
    const uint64_t columns = is_vector ? 1 : array.columns;
    VariableNode node{array.name, compose_name(prefix, array.name), {}};
    if (columns > samples::most_columns ||
        columns * array.parts.size() > most_variables - reader_.variables_.size())
      return left_out.add(node.full_name, "it has too many columns");
    if (!names_.insert(node.full_name).second)
      return left_out.add(node.full_name, "another array has the same full name");
    for (uint64_t column = 0; column < columns; ++column) {
      VariableNode* at = is_vector ? &node : child(node, "c" + std::to_string(column));
      for (size_t part = 0; part < array.parts.size(); ++part) {
        const VariableNode* leaf = array.parts.size() == 1 ? at : child(*at, part == 0 ? "re" : "im");
        const size_t variable = reader_.variables_.size();
        if (!reader_.index_.emplace(leaf->full_name, variable).second) continue;
        reader_.variables_.push_back(
            {leaf->full_name, array.parts[part], samples, column * samples, no_axis});
        if (array.parts.size() == 1) {
          axes.offer({variable, samples, is_vector && is_time_name(array.name)});
        } else {
          axes.add_other(samples);
        }
      }
    }
    nodes.push_back(std::move(node));
  }

  static VariableNode* child(VariableNode& node, const std::string& name) {
    node.children.push_back({name, compose_name(node.full_name, name), {}});
    return &node.children.back();
  }

  ReaderMAT& reader_;
  std::set<std::string> names_;  // full names in use
};

// One load request: a mapped file, and buffers to be filled.
class ReaderMAT::Load {
 public:
  Load(ReaderMAT& reader, Learned& learned) : reader_(reader), learned_(learned), file_(reader.path()) {}

  void expect_same_file() const {
    if (mirn3::sys::file_stamp(reader_.path()) == reader_.elements_->stamp) return;
    throw error_t(
        fmt::format("'{:s}' has changed since it was opened; open it again", reader_.path().string()));
  }

  // At the second variable of a compressed element (a structure or a matrix), inflates all of it if the
  // budget has room.
  void inflate_if_repeated(const Variable& variable) {
    const size_t number = variable.numbers.element;
    const mat::Element& element = reader_.elements_->list[number];
    const bool again = std::exchange(learned_.last_element, number) == number;
    if (!element.compressed || !again || learned_.inflated_element == number) return;
    learned_.drop();
    const std::unique_ptr<mat::Stream> stream = mat::open_element(file_.bytes(), element);
    uint64_t end = 0;
    for (const Variable& other : reader_.variables_) {
      if (other.numbers.element == number) end = std::max(end, other.offset() + other.bytes());
    }
    if (end > mirn3::mem::free_budget() / 2 || end > mat::most_inflated(element.size)) return;
    std::vector<unsigned char> content(end);
    stream->read(content);
    learned_.keep(number, std::move(content));
  }

  void read(const Variable& variable, double* to) const {
    const size_t number = variable.numbers.element;
    const mat::Element& element = reader_.elements_->list[number];
    const std::unique_ptr<mat::Stream> stream = learned_.inflated_element == number
                                                    ? mat::plain_stream(learned_.inflated)
                                                    : mat::open_element(file_.bytes(), element);
    stream->skip(variable.offset());
    const samples::Number& kind = variable.numbers.number;
    const size_t width = samples::width(kind.kind);
    if (const mat::Bytes bytes = element.compressed && learned_.inflated_element != number
                                     ? mat::Bytes()
                                     : stream->view(variable.bytes());
        !bytes.empty()) {
      return samples::widen(kind, bytes.data(), width, variable.samples, to);
    }
    if (kind.is_plain_double())
      return stream->read({reinterpret_cast<unsigned char*>(to), variable.samples * sizeof(double)});
    std::vector<unsigned char> block(block_samples * width);
    for (uint64_t done = 0; done < variable.samples;) {
      const uint64_t count = std::min<uint64_t>(block_samples, variable.samples - done);
      stream->read(std::span(block).first(count * width));
      samples::widen(kind, block.data(), width, count, to + done);
      done += count;
    }
  }

  // Throws where the file cannot hold so many numbers; before anything is allocated for them.
  void check(const Variable& variable) const {
    const mat::Element& element = reader_.elements_->list[variable.numbers.element];
    const uint64_t most = element.compressed ? mat::most_inflated(element.size) : element.size;
    if (variable.offset() > most || variable.bytes() > most - variable.offset())
      throw error_t(
          fmt::format("Variable '{:s}' claims more samples than the file holds", variable.full_name));
    samples::check_size(variable.samples, variable.full_name);
  }

 private:
  static constexpr uint64_t block_samples = 8192;

  ReaderMAT& reader_;
  Learned& learned_;
  mirn3::sys::Mapping file_;
};

ReaderMAT::ReaderMAT(std::filesystem::path source) : Reader(std::move(source)) {}
ReaderMAT::~ReaderMAT() = default;

void ReaderMAT::scan() {
  const mirn3::sys::FileStamp stamp = mirn3::sys::file_stamp(path_);
  const mirn3::sys::Mapping file(path_);
  Tree tree(*this);
  mat::Layout layout = mat::find_arrays(
      file.bytes(), [&](std::string_view name, std::string_view reason) { tree.left_out.add(name, reason); });
  root_.children = tree.level(layout.arrays, "");
  tree.left_out.finish();
  elements_ = std::make_unique<Elements>(Elements{stamp, std::move(layout.elements)});
  if (!variables_.empty()) return;
  throw error_t(
      fmt::format("'{:s}' holds no numeric vector or matrix{:s}", path_.string(), tree.left_out.first()));
}

std::shared_ptr<ReaderMAT::Learned> ReaderMAT::learned() {
  // Every load checks that the file is still the one whose elements are listed.
  if (auto known = kept_.of(elements_->stamp)) return known;
  auto fresh = std::make_shared<Learned>();
  fresh->stamp = elements_->stamp;
  return kept_.keep(std::move(fresh));
}

void ReaderMAT::forget() noexcept { kept_.drop(); }

void ReaderMAT::load(rto_t& request) {
  const auto found = index_.find(std::string(request.name));
  if (found == index_.end()) return refuse_name(request);
  const Variable& variable = variables_[found->second];
  const std::shared_ptr<Learned> known = learned();
  Load load(*this, *known);
  load.expect_same_file();
  load.check(variable);
  shared_vector<double> x, y;
  y.resize_for_overwrite(variable.samples);
  const bool own_time = variable.axis == found->second, counted = variable.axis == no_axis;
  const auto known_axis = known->axes.find(variable.axis);
  const bool to_read = !own_time && !counted && known_axis == known->axes.end();
  if (to_read) load.check(variables_[variable.axis]);
  if (known_axis != known->axes.end()) {
    x = known_axis->second;
  } else if (counted) {
    x = mirn3::num::ramp(1.0, variable.samples);
  } else {
    x.resize_for_overwrite(variable.samples);
  }
  load.inflate_if_repeated(variable);
  const bool in_place = !elements_->list[variable.numbers.element].compressed;  // reading twice costs nothing
  mirn3::par::run(2, [&](size_t part) {
    if (part == 0) load.read(variable, y.data());
    if (part == 1 && to_read) load.read(variables_[variable.axis], x.data());
    if (part == 1 && own_time && in_place) load.read(variable, x.data());
  });
  if (own_time && !in_place) std::memcpy(x.data(), y.data(), y.size() * sizeof(double));
  if (to_read) {
    known->axes.emplace(variable.axis, x);
  }
  if (!counted) check_time_vector(*this, x);
  request.x.swap(x);
  request.y.swap(y);
}

}  // namespace mirn2::rd

KVALO_BACKEND(mirn2::rd::ReaderMAT)
