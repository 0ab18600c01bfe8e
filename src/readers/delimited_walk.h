// One walk over the rows of a delimited file that reads number columns side by side.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "readers/delimited_rows.h"
#include "readers/delimited_scan.h"

namespace mirn2::rd {

// Which fields a walk reads, and where they go.
struct WalkPlan {
  char delimiter = ',';
  uint64_t first = 0;            // the first column; the others follow it
  std::vector<double*> outputs;  // of the columns, by row
  double* time = nullptr;        // of the time column; null: it is not wanted
  uint64_t room = 0;             // rows that the outputs and `left_at` have room for

  // In each row, where this walk stops for the next one, and where the walk before stopped: before the field
  // `left_before`, or nowhere if that is 0.
  uint32_t* left_at = nullptr;
  uint64_t left_before = 0;
};

class NumberWalk {
 public:
  NumberWalk(WalkPlan plan, size_t pieces);

  // Reads the rows of a piece. Different pieces may be read at once.
  void read(size_t piece, const scan::RowSpan& rows, uint64_t first_row);

  // Reads, on all cores, what has not been read or has other rows by now. False, and nothing is read, when
  // there are more rows than room for them.
  bool finish(const DelimitedRows& rows);

  // How many values of each column are missing and, last, how many times are unread.
  std::vector<uint64_t> odd() const;

  // The field that every row was left before.
  uint64_t left_before() const noexcept { return plan_.first + plan_.outputs.size(); }

 private:
  struct Piece {
    size_t rows = 0;  // read
    std::array<uint64_t, scan::most_fields> odd{};
  };

  WalkPlan plan_;
  std::vector<Piece> pieces_;
};

}  // namespace mirn2::rd
