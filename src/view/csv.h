// The samples of a chart between two times as comma-separated text, a piece at a time.
//
// One row for every time stamp of any series, in order; a series has an empty cell where it has no sample.
// Numbers are the shortest that give the same double again. Stamps that do not ascend come as they lie.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "view/model.h"

namespace kvalo_view {

class Csv {
 public:
  Csv(std::shared_ptr<const Chart> chart, Range times);

  // The next rows, some 64 kB; empty at the end.
  std::string next();

 private:
  struct Cursor {
    const Data* data;
    size_t at;
    size_t end;
  };

  std::shared_ptr<const Chart> chart_;
  Range times_;
  std::vector<Cursor> cursors_;
  bool has_title_ = false;
};

}  // namespace kvalo_view
