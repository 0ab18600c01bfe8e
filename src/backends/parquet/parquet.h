// Parquet files, through the Arrow and Parquet libraries of the pyarrow package.
//
// Columns of numbers, booleans, decimals, time stamps and texts are variables, struct columns are groups;
// docs/formats/parquet.md has the rules. A load reads only its column and the time, all row groups at once.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "readers/kept.h"
#include "readers/reader.h"

namespace mirn2::rd {

class ReaderParquet : public Reader {
 public:
  explicit ReaderParquet(std::filesystem::path source);
  ~ReaderParquet() override;

  // Reads the file's metadata. Columns that are not offered are named in the log.
  // Throws mirn3::exc::error_t for a file that is damaged, encrypted, or not Parquet.
  void scan() override;

  // Throws mirn3::exc::error_t for an unknown name, damage, and a file whose columns have changed since
  // scan().
  void load(rto_t& request) override;

  void forget() noexcept override;

 private:
  struct Learned;
  struct Layout;
  class Times;

  std::shared_ptr<Learned> learn();

  std::unique_ptr<const Layout> layout_;  // what scan() found
  Kept<Learned> kept_;
};

}  // namespace mirn2::rd
