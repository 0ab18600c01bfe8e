// The reader of XLSX workbooks: every sheet with data is a table; several sheets become groups of variables.
// docs/formats/xlsx.md has the rules for titles, dates, texts and empty cells.
//
// A sheet can only be read as a whole, so the first load keeps all of its columns for the next ones.
#pragma once

#include <memory>

#include "readers/kept.h"
#include "readers/reader.h"

namespace mirn2::rd {

class ReaderXLSX : public Reader {
 public:
  explicit ReaderXLSX(std::filesystem::path source);
  ~ReaderXLSX() override;

  void scan() override;
  void load(rto_t& request) override;
  void forget() noexcept override;

 private:
  class Learned;

  // What is known of the file as it is now; learned again when it has changed.
  std::shared_ptr<Learned> learn();

  Kept<Learned> kept_;
};

}  // namespace mirn2::rd
