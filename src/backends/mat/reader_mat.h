// MAT files of versions 4 to 7: numeric vectors become variables, matrices groups with one variable per
// column (c0, c1, ...), structures groups. Version 7.3 is HDF5 and read as that. docs/formats/mat.md says the
// rest.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "readers/kept.h"
#include "readers/reader.h"

namespace mirn2::rd {

class ReaderMAT final : public Reader {
 public:
  explicit ReaderMAT(std::filesystem::path source);
  ~ReaderMAT() override;

  void scan() override;
  void load(rto_t& request) override;
  void forget() noexcept override;

 private:
  struct Variable;
  struct Elements;
  struct Learned;
  class Tree;
  class Load;

  std::shared_ptr<Learned> learned();

  std::vector<Variable> variables_;
  std::unique_ptr<Elements> elements_;
  Kept<Learned> kept_;
};

}  // namespace mirn2::rd
