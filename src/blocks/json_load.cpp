// Loads model files: checks their form, then adds blocks and links, all or nothing.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "blocks/expr.h"
#include "blocks/factory.h"
#include "blocks/json_format.h"
#include "blocks/json_tape.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/sys.h"

namespace plexo::json {

namespace {

// Files within files.
constexpr size_t most_nested_files = 8;
constexpr size_t most_blocks = size_t{1} << 22;
thread_local std::vector<std::string> files_being_loaded;

struct Refusal {
  Result result;
  std::string why;
};

class Loader {
 public:
  Loader(const Tape& tape, MetaModel& model, uint64_t parent, bool takes_times)
      : tape_(&tape), model_(&model), parent_(parent), takes_times_(takes_times) {}

  // Throws Refusal.
  void load() {
    read_head();
    if (blocks_ != 0) read_blocks();
    if (links_ != 0) read_links();
  }

 private:
  struct Read {
    uint64_t id;
    uint64_t parent;
    uint32_t node;
    std::unique_ptr<MetaBlock> block;
    unsigned depth = 0;  // 0: not known yet
  };

  [[noreturn]] void refuse(Result result, uint32_t node, std::string_view why) const {
    throw Refusal{result, fmt::format("{}: {}", tape_->place(tape_->node(node).offset), why)};
  }
  [[noreturn]] void refuse_key(uint32_t key) const {
    refuse(bad_content, key, fmt::format("unknown key \"{}\"", tape_->text(key)));
  }

  double number_of(uint32_t node) const {
    if (tape_->node(node).type != Type::number) refuse(bad_content, node, "a number is due here");
    return tape_->node(node).number;
  }
  std::string text_of(uint32_t node) const {
    if (tape_->node(node).type != Type::text) refuse(bad_content, node, "a text is due here");
    return std::string(tape_->text(node));
  }
  uint64_t id_of(uint32_t node) const {
    const double number = number_of(node);
    if (!(number >= 0.0 && number <= largest_id) || number != std::floor(number)) {
      refuse(bad_ids, node, "an id is a whole number, 2 or more");
    }
    return static_cast<uint64_t>(number);
  }

  // An object's members: known ones go to take(name, value); those with "_" in front to nobody.
  template <typename Take>
  void members(uint32_t object, Take take) const {
    if (tape_->node(object).type != Type::object) refuse(bad_content, object, "an object is due here");
    tape_->each_member(object, [&](uint32_t key, uint32_t value) {
      const std::string_view name = tape_->text(key);
      if (!name.starts_with('_') && !take(name, value)) refuse_key(key);
      return true;
    });
  }

  void read_head();
  void read_version(uint32_t node) const;
  void read_blocks();
  Read read_block(uint32_t node) const;
  value_t read_value(const Kind* kind, Property property, uint32_t node) const;
  list_t read_list(uint32_t node) const;
  std::shared_ptr<series_t> read_series(uint32_t node) const;
  void find_depths(std::vector<Read>& blocks) const;
  void read_links();
  uint64_t id_here(uint64_t id) const { return id == top_id ? parent_ : id + offset_; }

  const Tape* tape_;
  MetaModel* model_;
  uint64_t parent_;
  bool takes_times_;
  uint64_t offset_ = 0;
  uint32_t blocks_ = 0;
  uint32_t links_ = 0;
  std::vector<uint64_t> ids_;  // of the file, ascending
};

void Loader::read_head() {
  if (tape_->node(0).type != Type::object) refuse(no_model, 0, "a model file is an object");
  uint32_t format = 0, version = 0;
  tape_->each_member(0, [&](uint32_t key, uint32_t value) {
    if (tape_->text(key) == "format") format = value;
    if (tape_->text(key) == "version") version = value;
    return true;
  });
  if (format == 0 || tape_->node(format).type != Type::text || tape_->text(format) != format_name) {
    refuse(no_model, format, fmt::format("\"format\" must be \"{}\"", format_name));
  }
  const bool is_number = version != 0 && tape_->node(version).type == Type::number;
  const double number = is_number ? tape_->node(version).number : 0.0;
  if (!(number >= 1.0) || number != std::floor(number))
    refuse(no_model, version, "\"version\" must be a whole number");
  if (number > newest_version) {
    refuse(
        no_model, version,
        fmt::format("version {} is newer than this program, which reads up to {}", number, newest_version));
  }
  Times times = model_->times();
  members(0, [&](std::string_view name, uint32_t value) {
    if (name == "ti")
      times.ti = number_of(value);
    else if (name == "tf")
      times.tf = number_of(value);
    else if (name == "ts")
      times.ts = number_of(value);
    else if (name == "blocks")
      blocks_ = value;
    else if (name == "links")
      links_ = value;
    else
      return name == "format" || name == "version";
    return true;
  });
  for (const uint32_t list : {blocks_, links_}) {
    if (list != 0 && tape_->node(list).type != Type::list) refuse(bad_content, list, "a list is due here");
  }
  if (takes_times_) model_->set_time(times.ti, times.tf, times.ts);
}

void Loader::read_blocks() {
  std::vector<Read> blocks;
  tape_->each_element(blocks_, [&](uint32_t node) {
    blocks.push_back(read_block(node));
    return true;
  });
  if (blocks.size() + model_->count() > most_blocks) {
    refuse(no_json, blocks_, fmt::format("a model has at most {} blocks", most_blocks));
  }
  std::ranges::stable_sort(blocks, {}, &Read::id);
  ids_.reserve(blocks.size());
  for (const Read& read : blocks) {
    if (!ids_.empty() && ids_.back() == read.id)
      refuse(bad_ids, read.node, fmt::format("id {} is there twice", read.id));
    ids_.push_back(read.id);
  }
  find_depths(blocks);

  offset_ = model_->largest_id() - 1;
  for (Read& read : blocks)
    model_->append(id_here(read.id), std::move(read.block), id_here(read.parent), read.depth);
}

Loader::Read Loader::read_block(uint32_t node) const {
  const Kind* kind = nullptr;
  uint32_t id_node = 0, kind_node = 0;
  // The kind tells what a value has to be, so it is looked for first.
  members(node, [&](std::string_view name, uint32_t value) {
    if (name == "id") id_node = value;
    if (name == "kind") kind_node = value;
    return true;
  });
  if (kind_node == 0) refuse(bad_content, node, "a block without \"kind\"");
  kind = find_kind(text_of(kind_node));
  if (kind == nullptr) refuse(no_kind, kind_node, fmt::format("unknown kind \"{}\"", tape_->text(kind_node)));
  if (id_node == 0) refuse(bad_ids, node, "a block without \"id\"");

  Read read{.id = id_of(id_node), .parent = top_id, .node = node, .block = nullptr};
  if (read.id <= top_id) refuse(bad_ids, id_node, "ids begin at 2: 1 is the block that is loaded into");
  auto given = std::make_shared<PropertiesBlock>();
  given->is_from_file = true;
  Place place{0, 0, 0, 0, -1, -1, -1};
  members(node, [&](std::string_view name, uint32_t value) {
    if (name == "id" || name == "kind") return true;
    const auto where = std::ranges::find(place_keys, name);
    if (name == "name")
      given->name = text_of(value);
    else if (name == "parent")
      read.parent = id_of(value);
    else if (where != place_keys.end())
      place[static_cast<size_t>(where - place_keys.begin())] = static_cast<float>(number_of(value));
    else if (const auto property = property_named(name))
      given->set(*property, read_value(kind, *property, value));
    else
      return false;
    return true;
  });
  try {
    read.block = make_block(*kind, std::move(given));
  } catch (const mirn3::exc::error_t& e) {
    refuse(bad_content, node, fmt::format("block {}: {}", read.id, e.what()));
  }
  read.block->place() = place;
  return read;
}

value_t Loader::read_value(const Kind* kind, Property property, uint32_t node) const {
  const Type type = tape_->node(node).type;
  if (kind->text_rule(property)) return text_of(node);
  const ListRule* rule = kind->list_rule(property);
  if (rule != nullptr && rule->shape == Shape::series) return read_series(node);
  if (type == Type::number) return number_of(node);
  if (type == Type::text) return text_of(node);
  if (type != Type::list || (rule != nullptr && rule->shape == Shape::number) ||
      kind->number_rule(property)) {
    refuse(bad_content, node, fmt::format("\"{}\" cannot have such a value", name_of(property)));
  }
  const bool has_rows = tape_->after(node) > node + 1 && tape_->node(node + 1).type == Type::list;
  if (!has_rows) return read_list(node);
  std::vector<list_t> rows;
  tape_->each_element(node, [&](uint32_t row) {
    rows.push_back(read_list(row));
    return true;
  });
  return rows;
}

list_t Loader::read_list(uint32_t node) const {
  if (tape_->node(node).type != Type::list) refuse(bad_content, node, "a list is due here");
  list_t list;
  tape_->each_element(node, [&](uint32_t element) {
    if (tape_->node(element).type == Type::text) {
      list.texts.emplace_back(static_cast<uint32_t>(list.numbers.size()), tape_->text(element));
      list.numbers.push_back(0.0);
    } else {
      list.numbers.push_back(number_of(element));
    }
    return true;
  });
  return list;
}

std::shared_ptr<series_t> Loader::read_series(uint32_t node) const {
  auto series = std::make_shared<series_t>();
  bool has_x = false, has_y = false;
  members(node, [&](std::string_view name, uint32_t value) {
    if (name != "x" && name != "y") return false;
    (name == "x" ? has_x : has_y) = true;
    // Numbers that JSON has no sign for are written as texts.
    const list_t list = read_list(value);
    std::vector<double> numbers = list.numbers;
    for (const auto& [position, text] : list.texts) {
      if (!plain_number(text, numbers[position])) refuse(bad_content, value, "a series holds numbers only");
    }
    auto& samples = name == "x" ? series->x : series->y;
    samples.resize_for_overwrite(numbers.size());
    std::ranges::copy(numbers, samples.data());
    return true;
  });
  if (!has_x || !has_y) refuse(bad_content, node, "a series has \"x\" and \"y\"");
  return series;
}

// How many systems each block lies in. Every parent is a system of the file, and none lies within itself.
void Loader::find_depths(std::vector<Read>& blocks) const {
  const unsigned base = model_->find(parent_)->depth();
  std::vector<bool> on_the_way(blocks.size());
  std::vector<size_t> trail;
  for (size_t i = 0; i < blocks.size(); ++i) {
    size_t at = i;
    unsigned depth = base;
    for (trail.clear(); blocks[at].depth == 0;) {
      const Read& read = blocks[at];
      if (on_the_way[at]) refuse(bad_ids, read.node, fmt::format("block {} lies within itself", read.id));
      on_the_way[at] = true;
      trail.push_back(at);
      if (read.parent == top_id) break;
      const auto up = std::ranges::lower_bound(ids_, read.parent);
      if (up == ids_.end() || *up != read.parent) {
        refuse(bad_ids, read.node,
               fmt::format("block {}: its parent {} is not in the file", read.id, read.parent));
      }
      at = static_cast<size_t>(up - ids_.begin());
      if (!blocks[at].block->is_system()) {
        refuse(bad_ids, read.node,
               fmt::format("block {}: its parent {} is not a subsys", read.id, read.parent));
      }
    }
    if (blocks[at].depth != 0) depth = blocks[at].depth;
    for (; !trail.empty(); trail.pop_back()) {
      Read& read = blocks[trail.back()];
      read.depth = ++depth;
      if (depth > MetaModel::deepest) {
        refuse(bad_ids, read.node,
               fmt::format("block {} lies more than {} systems deep", read.id, MetaModel::deepest));
      }
    }
  }
}

void Loader::read_links() {
  tape_->each_element(links_, [&](uint32_t node) {
    uint32_t from = 0, to = 0;
    double port_from = 1, port_to = 1;
    std::string name;
    members(node, [&](std::string_view key, uint32_t value) {
      if (key == "from")
        from = value;
      else if (key == "to")
        to = value;
      else if (key == "portFrom")
        port_from = number_of(value);
      else if (key == "portTo")
        port_to = number_of(value);
      else if (key == "name")
        name = text_of(value);
      else
        return false;
      return true;
    });
    if (from == 0 || to == 0) refuse(bad_content, node, "a link has \"from\" and \"to\"");
    for (const uint32_t end : {from, to}) {
      if (!std::ranges::binary_search(ids_, id_of(end)))
        refuse(bad_ids, end, fmt::format("there is no block {} in the file", id_of(end)));
    }
    // A port that cannot be is 0, and found by the checks.
    const auto port = [](double number) {
      return number >= 1.0 && number <= 32767.0 && number == std::floor(number) ? static_cast<int16_t>(number)
                                                                                : int16_t{0};
    };
    model_->wires().insert_link(id_here(id_of(from)), id_here(id_of(to)), port(port_from), port(port_to),
                                name);
    return true;
  });
}

// Throws Refusal, or mirn3::exc::error_t if the file cannot be read.
void load_text(std::string_view text, MetaModel& model, uint64_t parent, bool takes_times) {
  if (text.size() > most_bytes)
    throw Refusal{no_json, fmt::format("the file has more than {} MiB", most_bytes >> 20)};
  Tape tape;
  std::string why;
  if (!tape.read(text, most_levels, why)) throw Refusal{no_json, why};
  Loader(tape, model, parent, takes_times).load();
}

// Systems with a path that have come along get the content of that file.
void load_inner(MetaModel& model, size_t first_block) {
  for (size_t i = first_block; i < model.blocks().size(); ++i) {
    const MetaBlock& block = *model.blocks()[i];
    const auto* path = std::get_if<std::string>(&block.given().get(Property::path));
    if (!block.is_system() || path == nullptr) continue;
    const std::string file = *path;
    const int result = load(&model, file, block.id());
    if (result != loaded)
      throw Refusal{static_cast<Result>(result),
                    fmt::format("block {}: cannot load \"{}\"", block.id(), file)};
  }
}

int load(MetaModel& model, const std::string& path, uint64_t parent, bool takes_times) {
  const MetaModel::Mark before = model.mark();
  Result result = loaded;
  std::string why;
  std::error_code ignored;
  const std::string canonical = std::filesystem::weakly_canonical(path, ignored).string();
  const bool is_open = std::ranges::find(files_being_loaded, canonical) != files_being_loaded.end();
  if (is_open || files_being_loaded.size() >= most_nested_files) {
    mirn3::log::write(
        mirn3::log::warning,
        fmt::format("{}: {}", path, is_open ? "the file holds itself" : "files within files, too deep"));
    return bad_ids;
  }
  files_being_loaded.push_back(canonical);
  try {
    const mirn3::sys::Mapping file(path);
    if (model.count() == 0) add_top(model);
    load_text(file.text(), model, parent, takes_times);
    load_inner(model, before.blocks);
  } catch (const Refusal& refusal) {
    result = refusal.result;
    why = refusal.why;
  } catch (const mirn3::exc::error_t& e) {
    result = unreadable;
    why = e.what();
  } catch (const std::bad_alloc&) {
    result = no_json;
    why = "there is not enough memory for it";
  }
  files_being_loaded.pop_back();
  if (result != loaded) {
    model.roll_back(before);
    mirn3::log::write(mirn3::log::warning, fmt::format("{}: {}", path, why));
  }
  return result;
}

}  // namespace

void add_top(MetaModel& model) {
  auto top = factory::create("subsys");
  top->set_name("mainsys");
  model.add(std::move(top), 0);
}

int load(IMetaModel* model, std::string_view path) {
  return load(static_cast<MetaModel&>(*model), std::string(path), top_id, true);
}

int load(IMetaModel* model, std::string_view path, uint64_t parent) {
  auto& mine = static_cast<MetaModel&>(*model);
  const MetaBlock* system = mine.find(parent);
  if (system == nullptr || !system->is_system()) {
    mirn3::log::write(mirn3::log::warning,
                      fmt::format("{}: block {} is not a subsys to load into", path, parent));
    return bad_ids;
  }
  return load(mine, std::string(path), parent, false);
}

}  // namespace plexo::json
