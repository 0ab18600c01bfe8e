// Reads number columns of a delimited file side by side in one walk over its rows.
#include "readers/delimited_walk.h"

#include <utility>

namespace mirn2::rd {

namespace {

// From this many bytes of outputs on, the first of them would be out of the caches before the last are
// written, so they had better leave the text in there.
constexpr uint64_t more_than_caches = uint64_t{16} << 20;

}  // namespace

NumberWalk::NumberWalk(WalkPlan plan, size_t pieces) : plan_(std::move(plan)), pieces_(pieces) {}

void NumberWalk::read(size_t piece, const scan::RowSpan& rows, uint64_t first_row) {
  if (first_row + rows.rows > plan_.room) return;
  const size_t fields = plan_.outputs.size();
  pieces_[piece] = {.rows = rows.rows};
  auto& odd = pieces_[piece].odd;

  uint64_t from_column = plan_.left_before;
  bool goes_on = from_column != 0 && from_column <= plan_.first;
  scan::NumberPass pass{.span = rows, .delimiter = plan_.delimiter, .to = plan_.left_at + first_row};
  pass.past_caches = plan_.room * (fields + 1) * sizeof(double) >= more_than_caches;
  if (plan_.time != nullptr) {
    double* time = plan_.time + first_row;
    pass.time_first = true;
    pass.out = &time;
    pass.odd = &odd[fields];
    scan::read_numbers(scan::best_level(), pass);
    goes_on = true;
    from_column = 1;
  }
  std::array<double*, scan::most_fields> out{};
  for (size_t k = 0; k < fields; ++k) out[k] = plan_.outputs[k] + first_row;
  pass.column = plan_.first;
  pass.fields = fields;
  pass.time_first = false;
  pass.from = goes_on ? plan_.left_at + first_row : nullptr;
  pass.from_column = from_column;
  pass.out = out.data();
  pass.odd = odd.data();
  scan::read_numbers(scan::best_level(), pass);
}

bool NumberWalk::finish(const DelimitedRows& rows) {
  if (rows.rows() > plan_.room) return false;
  rows.for_each_piece([&](size_t piece) {
    const scan::RowSpan span = rows.span(piece);
    if (pieces_[piece].rows != span.rows) read(piece, span, rows.first_row_of(piece));
  });
  pieces_.resize(rows.pieces());  // later ones have no rows any more
  return true;
}

std::vector<uint64_t> NumberWalk::odd() const {
  std::vector<uint64_t> totals(plan_.outputs.size() + 1);
  for (const Piece& piece : pieces_) {
    for (size_t k = 0; k < totals.size(); ++k) totals[k] += piece.odd[k];
  }
  return totals;
}

}  // namespace mirn2::rd
