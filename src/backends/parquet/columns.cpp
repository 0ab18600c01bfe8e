// From the schema of a Parquet file to variables.
#include "backends/parquet/columns.h"

#include <arrow/type.h>
#include <parquet/arrow/schema.h>
#include <parquet/properties.h>

#include <array>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "readers/time_name.h"
#include "runtime/str.h"

namespace mirn2::rd {

namespace {

using parquet::schema::GroupNode;
using parquet::schema::Node;

constexpr int no_leaf = ParquetColumn::sample_indexes;

// A field that may be offered: a group or a leaf.
struct Field {
  std::string name;
  std::string full_name;
  int leaf = no_leaf;  // none for groups
  Meaning meaning;
  std::vector<Field> members;
  int axis = no_leaf;  // of a group: its time column, if one of its own has the name for it
};

// Units of columns that the writer's Arrow schema calls durations, by leaf; 0 for all others.
class Durations {
 public:
  explicit Durations(const parquet::FileMetaData& metadata) {
    const auto made =
        parquet::arrow::SchemaManifest::Make(metadata.schema(), metadata.key_value_metadata(),
                                             parquet::default_arrow_reader_properties(), &manifest_);
    known_ = made.ok();
  }

  int64_t ticks(int leaf) const {
    if (!known_) return 0;
    const auto found = manifest_.column_index_to_field.find(leaf);
    if (found == manifest_.column_index_to_field.end()) return 0;
    const arrow::DataType& type = *found->second->field->type();
    if (type.id() != arrow::Type::DURATION) return 0;
    constexpr std::array<int64_t, 4> per_second = {1, 1'000, 1'000'000, 1'000'000'000};
    return per_second.at(static_cast<size_t>(static_cast<const arrow::DurationType&>(type).unit()));
  }

 private:
  parquet::arrow::SchemaManifest manifest_;
  bool known_ = false;
};

int named_axis(const std::vector<Field>& fields) {
  for (const std::string_view name : time_names) {
    for (const Field& field : fields) {
      if (field.leaf != no_leaf && field.meaning.is_axis() && mirn3::str::to_lower(field.name) == name) {
        return field.leaf;
      }
    }
  }
  return no_leaf;
}

// Walks the schema in the order of its leaves.
class Walk {
 public:
  Walk(const parquet::FileMetaData& metadata, std::vector<std::string>& left_out)
      : schema_(*metadata.schema()), durations_(metadata), left_out_(left_out) {}

  // The fields of a group. Those that are not offered are noted, a list or a map as one.
  std::vector<Field> fields(const GroupNode& group, const std::string& prefix) {
    std::vector<Field> found;
    for (int i = 0; i < group.field_count(); ++i) {
      const Node& node = *group.field(i);
      Field field{.name = mirn3::str::to_utf8(node.name()), .full_name = {}, .meaning = {}, .members = {}};
      field.full_name = compose_name(prefix, field.name);
      if (node.is_primitive() ? take_leaf(node, field)
                              : take_group(static_cast<const GroupNode&>(node), field)) {
        found.push_back(std::move(field));
      } else {
        left_out_.push_back(std::move(field.full_name));
      }
    }
    return found;
  }

 private:
  bool take_leaf(const Node& node, Field& field) {
    field.leaf = next_leaf_++;
    field.meaning = meaning_of(*schema_.Column(field.leaf), durations_.ticks(field.leaf));
    if (schema_.Column(field.leaf)->physical_type() == parquet::Type::UNDEFINED) {
      field.full_name += " (of an unknown type)";
    }
    return !node.is_repeated() && field.meaning.is_offered();
  }

  bool take_group(const GroupNode& group, Field& field) {
    const auto& logical = group.logical_type();
    const bool is_struct = logical == nullptr || logical->is_none() || !logical->is_valid();
    if (group.is_repeated() || !is_struct) {
      pass_over(group);
      return false;
    }
    field.members = fields(group, field.full_name);
    field.axis = named_axis(field.members);
    return !field.members.empty();
  }

  void pass_over(const GroupNode& group) {
    for (int i = 0; i < group.field_count(); ++i) {
      if (group.field(i)->is_primitive()) {
        ++next_leaf_;
      } else {
        pass_over(static_cast<const GroupNode&>(*group.field(i)));
      }
    }
  }

  const parquet::SchemaDescriptor& schema_;
  Durations durations_;
  std::vector<std::string>& left_out_;
  int next_leaf_ = 0;
};

// The first column of numbers, in groups too.
const Field* first_numeric(const std::vector<Field>& fields) {
  for (const Field& field : fields) {
    if (field.leaf != no_leaf && field.meaning.is_axis()) return &field;
    if (const Field* found = first_numeric(field.members)) return found;
  }
  return nullptr;
}

// The leaves of all groups, in order.
void gather(const std::vector<Field>& fields, std::map<int, Meaning>& leaves, std::set<int>& axes) {
  for (const Field& field : fields) {
    if (field.leaf != no_leaf) leaves.emplace(field.leaf, field.meaning);
    if (field.axis != no_leaf) axes.insert(field.axis);
    gather(field.members, leaves, axes);
  }
}

// Every leaf that is no time column becomes a variable.
struct Assembly {
  std::map<int, Meaning> leaves;
  std::set<int> axes;
  ParquetColumns& result;

  std::vector<VariableNode> nodes(std::vector<Field>& fields, int axis) {
    std::vector<VariableNode> made;
    for (Field& field : fields) {
      VariableNode node{std::move(field.name), std::move(field.full_name), {}};
      if (field.leaf == no_leaf) {
        node.children = nodes(field.members, field.axis != no_leaf ? field.axis : axis);
        if (node.children.empty()) continue;
      } else {
        if (axes.contains(field.leaf)) continue;
        result.columns.push_back(
            {field.leaf, field.meaning, axis, axis != no_leaf ? leaves.at(axis) : Meaning{}});
        result.names.push_back(node.full_name);
      }
      made.push_back(std::move(node));
    }
    return made;
  }
};

}  // namespace

ParquetColumns columns_of(const parquet::FileMetaData& metadata) {
  ParquetColumns result;
  std::vector<Field> fields = Walk(metadata, result.left_out).fields(*metadata.schema()->group_node(), "");
  Assembly assembly{.leaves = {}, .axes = {}, .result = result};
  gather(fields, assembly.leaves, assembly.axes);

  int axis = named_axis(fields);
  if (const Field* first = first_numeric(fields); axis == no_leaf && first != nullptr) axis = first->leaf;
  if (axis != no_leaf) assembly.axes.insert(axis);
  if (assembly.leaves.size() == 1) {  // nothing that it could be the time of
    fields[0].axis = axis = no_leaf;
    assembly.axes.clear();
  }
  result.tree = assembly.nodes(fields, axis);
  return result;
}

}  // namespace mirn2::rd
