// HDF5 files: groups become groups, data sets of numbers or text become variables.
//
// A vector is one variable; a matrix is a group with one variable per column (c0, c1, ...); members of
// compound elements are variables of a group. docs/formats/hdf5.md says what is left out, and where time
// comes from.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "readers/kept.h"
#include "readers/reader.h"

namespace mirn2::rd {

class ReaderHDF5 final : public Reader {
 public:
  explicit ReaderHDF5(std::filesystem::path source);
  ~ReaderHDF5() override;

  void scan() override;
  void load(rto_t& request) override;
  void forget() noexcept override;

 private:
  struct Dataset;
  struct Variable;
  struct Learned;
  class Scan;
  class Load;

  std::shared_ptr<Learned> learned();

  std::vector<Dataset> datasets_;
  std::vector<Variable> variables_;
  Kept<Learned> kept_;
};

}  // namespace mirn2::rd
