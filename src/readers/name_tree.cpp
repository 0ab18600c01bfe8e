// Builds the variable tree of sources whose names contain dots.
#include "readers/name_tree.h"

#include <fmt/format.h>

#include "runtime/exc.h"

namespace mirn2::rd {

using mirn3::exc::error_t;

std::string NameTree::insert(std::string_view name) {
  if (name.size() > longest_name) {
    throw error_t(fmt::format("The source has a variable name of more than {:d} bytes: '{:.40s}...'",
                              longest_name, name));
  }
  std::string_view rest = name.substr(0, name.find_first_of("\r\n"));
  if (rest.empty()) throw error_t("The source has a variable without a name");
  size_t node = 0;
  for (size_t depth = 0; !rest.empty(); ++depth) {
    if (depth == deepest) {
      throw error_t(fmt::format("The source has a variable name of more than {:d} levels: '{:.40s}...'",
                                deepest, name));
    }
    const size_t dot = rest.find('.');
    node = child(node, rest.substr(0, dot));
    rest = dot == std::string_view::npos ? std::string_view() : rest.substr(dot + 1);
  }
  return nodes_[node].full_name;
}

size_t NameTree::child(size_t parent, std::string_view segment) {
  const auto [entry, is_new] = known_.try_emplace(fmt::format("{:d}.{:s}", parent, segment), nodes_.size());
  if (is_new) {
    nodes_[parent].children.push_back(nodes_.size());
    nodes_.push_back({std::string(segment), compose_name(nodes_[parent].full_name, segment), {}});
  }
  return entry->second;
}

std::vector<VariableNode> NameTree::take() {
  VariableNode root = take(0);
  nodes_.assign(1, {});
  known_.clear();
  return std::move(root.children);
}

VariableNode NameTree::take(size_t index) {
  Node& node = nodes_[index];
  VariableNode taken{std::move(node.name), std::move(node.full_name), {}};
  taken.children.reserve(node.children.size());
  for (const size_t next : node.children) taken.children.push_back(take(next));
  return taken;
}

}  // namespace mirn2::rd
