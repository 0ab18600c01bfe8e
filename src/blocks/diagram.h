// A model with its ids resolved, and the checks that find what is wrong with it before it runs.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "blocks/flat.h"
#include "blocks/meta.h"

namespace plexo {

// Why a model cannot run; false when there is nothing wrong.
struct Problem {
  int code = good;
  uint64_t block = 0;
  std::string text{};

  explicit operator bool() const noexcept { return code != good; }
};

// The output that feeds an input.
struct Wire {
  uint32_t block = no_index;
  uint32_t port = 0;  // from 0
};

Problem check_times(const Times& times);

// The ports that a system has, by its inport and outport blocks.
Ports system_ports(const MetaModel& model, uint64_t system);

// Blocks are known by their place here, in the order of their ids.
class Diagram {
 public:
  explicit Diagram(MetaModel& model);

  // All checks but the one for loops, in the order in which they count.
  Problem check();

  size_t size() const noexcept { return blocks_.size(); }
  MetaBlock& block(uint32_t index) const noexcept { return *blocks_[index]; }
  Values values(uint32_t index) const { return {block(index).kind(), block(index).evaluated(), times_}; }
  const Times& times() const noexcept { return times_; }
  uint32_t parent(uint32_t index) const noexcept { return parents_[index]; }

  // After check() has found nothing:
  Ports ports(uint32_t index) const noexcept { return ports_[index]; }
  std::span<const Wire> wires(uint32_t index) const noexcept {
    return {&wires_[first_wire_[index]], first_wire_[index + 1] - first_wire_[index]};
  }
  // The inport or outport blocks of a system by their numbers.
  std::span<const uint32_t> inports(uint32_t system) const { return systems_.at(system).inports; }
  std::span<const uint32_t> outports(uint32_t system) const { return systems_.at(system).outports; }
  uint32_t port_index(uint32_t port_block) const;   // its number, from 0
  uint32_t goto_of(std::string_view target) const;  // no_index if there is none
  // What each system shows. Columns stand for what links_from() names.
  struct Shown {
    std::string name;
    Wire source;
  };
  std::vector<Shown> shown(uint32_t system) const;
  std::vector<uint32_t> systems_within(uint32_t system) const { return systems_.at(system).systems; }

 private:
  struct System {
    std::vector<uint32_t> inports;
    std::vector<uint32_t> outports;
    std::vector<uint32_t> systems;
    std::vector<uint32_t> named_links;
    bool shows = false;  // it or a system within has something to show
  };
  struct Ends {
    uint32_t from = no_index;
    uint32_t to = no_index;
  };
  using BlockCheck = Problem (Diagram::*)(uint32_t);

  uint32_t index_of(uint64_t id) const noexcept;
  Problem each(BlockCheck one);
  Problem problem(int code, uint32_t index, std::string_view text) const;
  Problem bad_property(int code, uint32_t index, Property property, std::string_view text) const;

  // One for each of the checks; diagram_values.cpp has those of values, diagram_links.cpp those of links.
  Problem check_input_count(uint32_t index);
  Problem check_expressions(uint32_t index);
  Problem check_values(uint32_t index);
  Problem check_sizes(uint32_t index);
  Problem check_target(uint32_t index);
  Problem check_cast(uint32_t index);
  Problem check_from(uint32_t index);
  Problem check_goto(uint32_t index);
  Problem check_inputs(uint32_t index);
  Problem check_links() const;

  Problem check_numbers(uint32_t index) const;
  Problem check_texts(uint32_t index) const;
  Problem check_port_numbers(uint32_t index) const;
  Problem check_second_link(uint32_t index) const;
  Problem check_names(uint32_t index) const;
  Problem check_top_names() const;
  void sort_ports();
  void connect();
  bool is_linked(uint32_t index) const;

  MetaModel* model_;
  Times times_;
  std::vector<MetaBlock*> blocks_;
  std::vector<uint32_t> parents_;
  std::vector<Ports> ports_;
  std::vector<uint32_t> first_wire_;
  std::vector<Wire> wires_;
  std::vector<Ends> ends_;  // of the links
  std::unordered_map<uint32_t, System> systems_;
  std::vector<bool> has_second_link_;
  std::unordered_map<std::string_view, uint32_t> gotos_;
  std::unordered_map<std::string_view, uint32_t> froms_;
};

}  // namespace plexo
