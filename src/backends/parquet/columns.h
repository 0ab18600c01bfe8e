// Which columns of a Parquet file are variables, and which column is the time of which others.
#pragma once

#include <parquet/metadata.h>

#include <string>
#include <vector>

#include "backends/parquet/values.h"
#include "readers/reader.h"

namespace mirn2::rd {

struct ParquetColumn {
  static constexpr int sample_indexes = -1;

  int leaf = 0;  // its position among the columns of the file
  Meaning meaning;
  int axis = sample_indexes;  // the column with its time
  Meaning axis_meaning;
};

struct ParquetColumns {
  std::vector<VariableNode> tree;      // struct columns are groups
  std::vector<ParquetColumn> columns;  // in the order of the tree's leaves
  std::vector<std::string> names;      // full names of `columns`
  std::vector<std::string> left_out;   // full names of lists, maps and other columns that are not offered
};

// The rules are in docs/formats/parquet.md.
ParquetColumns columns_of(const parquet::FileMetaData& metadata);

}  // namespace mirn2::rd
