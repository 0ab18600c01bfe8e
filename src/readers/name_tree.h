// The variable tree of sources that name their variables with dots: engine.rpm and engine.temp become the
// group engine with two members.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "readers/reader.h"

namespace mirn2::rd {

class NameTree {
 public:
  // Adds the levels of a name that do not exist yet. A carriage return or line feed ends the name. Gives the
  // full name of the node that it stands for, which differs from the name when levels are empty. Throws
  // mirn3::exc::error_t for a name that is empty, too long or too deep.
  std::string insert(std::string_view name);

  // The nodes in order of their first appearance; the tree is empty afterwards.
  std::vector<VariableNode> take();

  static constexpr size_t longest_name = 4096;  // bytes
  static constexpr size_t deepest = 64;         // levels
  static constexpr size_t most_names = 1'000'000;

 private:
  struct Node {
    std::string name;
    std::string full_name;
    std::vector<size_t> children;
  };

  size_t child(size_t parent, std::string_view segment);
  VariableNode take(size_t node);

  std::vector<Node> nodes_{1};  // the first one is the root
  std::unordered_map<std::string, size_t> known_;
};

}  // namespace mirn2::rd
