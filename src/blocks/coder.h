// What the generators of C and of Python have in common: names, and the texts of the operations filled in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "blocks/flat.h"
#include "blocks/meta.h"
#include "blocks/ops.h"

namespace plexo {

// A number as C and Python write it: read back it is the same one. Not for infinity and NaN.
std::string decimal(double value);

// The functions of a source that a text calls, and those that they call in turn, in the source's order. A
// function is a paragraph of the source, with the comments above it; `opening` begins its first line, and its
// name is the word before the first parenthesis.
std::vector<std::string> called_functions(std::string_view source, std::string_view opening,
                                          const std::string& text);

class Coder {
 public:
  virtual ~Coder() = default;

 protected:
  explicit Coder(const FlatModel& flat);

  // How the language writes these.
  virtual std::string number(double value) const = 0;
  virtual std::string signal(uint32_t index) const = 0;
  virtual std::string stored(const Cell& cell) const = 0;
  virtual std::string table(uint32_t index) const = 0;
  virtual std::string outer_input(uint32_t signal) const = 0;
  virtual std::string quotient(const std::string& a, const std::string& b) const = 0;

  // An operation's text with all $ words filled in, for one of the outputs of its cell.
  std::string expand(std::string_view text, const Cell& cell, uint32_t output = 0) const;
  // The value of one output of a cell: its operation's text, of a sum or product the terms.
  std::string value(std::string_view text, const Cell& cell, uint32_t output) const;

  // "speed: gain (block 3)", harmless in any comment.
  std::string title(const Cell& cell, const IMetaModel& model) const;
  const std::string& full_name(const Cell& cell) const { return flat_->cell_names[place(cell)]; }
  size_t place(const Cell& cell) const { return static_cast<size_t>(&cell - flat_->cells.data()); }
  // The initial values of what a cell stores, without its fill; their number with it.
  std::span<const double> initial_states(const Cell& cell) const;
  uint64_t count_states(const Cell& cell) const;
  static bool is_filled(const Cell& cell) { return cell.next == Op::delay_next; }
  bool has_op(Op op) const;
  double samples() const;

  const FlatModel* flat_;
  std::vector<std::string> signal_names_;  // all different
  std::vector<std::string> cell_names_;    // likewise
  mutable bool uses_k_ = false;
  mutable bool uses_time_ = false;

 private:
  std::string word(std::string_view word, const Cell& cell, uint32_t output) const;
  std::string repeat(std::string_view section, const Cell& cell) const;
  std::string terms(const Cell& cell) const;

  std::vector<uint32_t> state_counts_;
};

// Meta-processes the model and hands its flat form to generate(), which returns the files. The codes of
// generate_code.
int generate_with(std::string_view path, IMetaModel* model,
                  std::vector<std::pair<std::string, std::string>> (*generate)(const FlatModel&,
                                                                               const IMetaModel&));

}  // namespace plexo
