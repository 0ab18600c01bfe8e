// A delimited file, mapped, and where each of its data rows starts.
//
// The starts are 32-bit offsets within pieces of the file, so they cost four bytes a row; threads share the
// work by pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>
#include <vector>

#include "readers/delimited_scan.h"
#include "runtime/charge.h"
#include "runtime/sys.h"

namespace mirn2::rd {

// Walks over the lines of a text. A line's text ends at its first zero byte, the line at its line feed.
class LineWalk {
 public:
  // A byte order mark at the start of the text is skipped.
  explicit LineWalk(std::string_view text);

  // The next line's text, with its line feed unless a zero byte or the end of the file comes first.
  // False at the end.
  bool next(std::string_view& line);

  // Offset of the next line.
  size_t position() const noexcept { return position_; }

 private:
  std::string_view text_;
  size_t position_ = 0;
};

class DelimitedRows {
 public:
  // Reads the rows of a piece while they are in the caches; `first_row` is the number of its first row.
  // Called on any thread, for different pieces at once. Pieces may be left out, and rows at the end of the
  // text may turn out not to be rows, so the caller compares what was read with the final rows.
  using Visit = std::function<void(size_t piece, const scan::RowSpan& rows, uint64_t first_row)>;

  // Makes the visit, if one is wanted, for the text of all rows, which is cut into `pieces` pieces.
  using Prepare = std::function<Visit(std::string_view text, size_t pieces)>;

  // Maps the file and finds the rows after the first `header_lines` lines, up to the first line of
  // fewer than two characters (line end included). Throws mirn3::exc::error_t.
  //
  // A last line without a line feed and with fewer delimiters than the first data row is still being written:
  // it is not a row. One with as many is a row, because finished files often lack the last line feed.
  //
  // `piece_bytes` is the size of the pieces the file is cut into, below 4 GiB.
  DelimitedRows(const std::filesystem::path& path, char delimiter, uint64_t header_lines,
                size_t piece_bytes = usual_piece_bytes, const Prepare& prepare = {});

  // Large enough to outweigh the cost of handing a piece to a thread, small enough to share evenly.
  static constexpr size_t usual_piece_bytes = size_t{1} << 20;

  // What the file was when it was mapped.
  const mirn3::sys::FileStamp& stamp() const noexcept { return stamp_; }
  std::string_view text() const noexcept { return mapping_.text(); }

  uint64_t rows() const noexcept { return rows_; }
  bool has_unfinished_row() const noexcept { return has_unfinished_row_; }

  // Lines of the whole file.
  uint64_t line_count() const noexcept { return line_count_; }

  // The first data row without its line feed; empty when there is none.
  std::string_view first_row() const;

  size_t pieces() const noexcept { return pieces_.size(); }
  scan::RowSpan span(size_t piece) const;
  uint64_t first_row_of(size_t piece) const { return pieces_[piece].first_row; }

  // Calls task(piece) for every piece, on all cores when there is enough to do.
  void for_each_piece(const std::function<void(size_t piece)>& task) const;

 private:
  struct Piece {
    size_t base = 0;               // offset of the piece in the file
    std::vector<uint32_t> starts;  // offsets of line starts from base
    uint64_t first_row = 0;
    size_t last_end = 0;  // end of the piece's last row
    scan::LineSearch search{nullptr};
  };

  class Search;

  void find_rows(size_t first, char delimiter, size_t piece_bytes, const Prepare& prepare);
  void cut_at_short_line();
  void drop_rows_from(size_t offset);

  mirn3::sys::FileStamp stamp_;
  mirn3::sys::Mapping mapping_;
  std::vector<Piece> pieces_;
  uint64_t rows_ = 0;
  uint64_t line_count_ = 0;
  bool has_unfinished_row_ = false;
  mirn3::mem::Charge charge_;
};

}  // namespace mirn2::rd
