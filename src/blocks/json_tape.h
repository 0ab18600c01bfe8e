// A JSON text as a flat array of nodes that know where they stand in the file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace plexo::json {

enum class Type : uint8_t { null, boolean, number, text, key, list, object };

class Tape {
 public:
  // Reads a whole text; false, with the reason and its line and column, if it is not UTF-8 JSON or has more
  // levels than are allowed.
  bool read(std::string_view text, unsigned most_levels, std::string& why);

  // "line 3, column 14"
  std::string place(uint32_t offset) const;

  struct Node {
    Type type;
    uint32_t offset;  // of its first byte
    uint32_t extent;  // nodes of a list or object with all that is in it; bytes of a text
    union {
      double number;
      uint64_t text;  // its place among the texts
    };
  };

  const Node& node(uint32_t index) const { return nodes_[index]; }
  std::string_view text(uint32_t index) const {
    return std::string_view(texts_).substr(nodes_[index].text, nodes_[index].extent);
  }
  // The node after this one and all that is in it.
  uint32_t after(uint32_t index) const {
    const Type type = nodes_[index].type;
    return index + (type == Type::list || type == Type::object ? nodes_[index].extent : 1);
  }

  // Calls visit(index) for every element of a list, or visit(key, value) for every member of an object, as
  // long as it returns true; false if one did not.
  template <typename Visit>
  bool each_element(uint32_t list, Visit visit) const {
    for (uint32_t i = list + 1; i < after(list); i = after(i)) {
      if (!visit(i)) return false;
    }
    return true;
  }
  template <typename Visit>
  bool each_member(uint32_t object, Visit visit) const {
    for (uint32_t i = object + 1; i < after(object); i = after(i + 1)) {
      if (!visit(i, i + 1)) return false;
    }
    return true;
  }

 private:
  friend class Builder;

  std::string_view source_;
  std::vector<Node> nodes_;
  std::string texts_;
};

}  // namespace plexo::json
