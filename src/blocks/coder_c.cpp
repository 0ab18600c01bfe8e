// Writes a model as C11: no allocation, no state outside the instance, the same bits as a simulation.
#include <fmt/format.h>

#include <cmath>

#include "blocks/coder.h"
#include "blocks/names.h"
#include "blocks/quoted.h"

namespace plexo {

namespace {

constexpr std::string_view head = "/* Made by kvalo from a block model. */\n";

// What makes other compilers' options harmless: no multiplication and addition in one rounding.
constexpr std::string_view no_contraction =
    "#if defined(__clang__)\n#pragma STDC FP_CONTRACT OFF\n#elif defined(__GNUC__)\n"
    "#pragma GCC optimize(\"fp-contract=off\")\n#endif\n";

class CoderC : public Coder {
 public:
  CoderC(const FlatModel& flat, const IMetaModel& model) : Coder(flat), model_(&model) {
    UniqueNames in, out;
    for (const TopPort& port : flat.inports) in_names_.push_back(in.make(c_name(port.name)));
    for (const TopPort& port : flat.outports) out_names_.push_back(out.make(c_name(port.name)));
  }

  std::string header() const;
  std::string source() const;
  std::string main() const;

 protected:
  std::string number(double value) const override {
    if (std::isnan(value)) return "NAN";
    if (std::isinf(value)) return value > 0.0 ? "INFINITY" : "-INFINITY";
    return decimal(value);
  }
  std::string signal(uint32_t index) const override { return "m->s." + signal_names_[index]; }
  std::string stored(const Cell& cell) const override { return "m->x." + cell_names_[place(cell)]; }
  std::string table(uint32_t index) const override { return fmt::format("table{}", index); }
  std::string outer_input(uint32_t signal) const override {
    for (size_t i = 0; i < flat_->inports.size(); ++i) {
      if (flat_->inports[i].signal == signal) return "in->" + in_names_[i];
    }
    return {};
  }
  std::string quotient(const std::string& a, const std::string& b) const override { return a + " / " + b; }

 private:
  static std::string members(const std::vector<std::string>& names, std::string_view indent) {
    std::string text;
    for (const std::string& name : names) text += fmt::format("{}double {};\n", indent, name);
    return names.empty() ? fmt::format("{}double unused_;\n", indent) : text;
  }
  std::string states() const;
  std::string tables() const;
  std::string init() const;
  std::string step() const;

  const IMetaModel* model_;
  std::vector<std::string> in_names_;
  std::vector<std::string> out_names_;
};

std::string CoderC::states() const {
  std::string text;
  for (const Cell& cell : flat_->cells) {
    if (const uint64_t count = count_states(cell))
      text += fmt::format("    double {}[{}];\n", cell_names_[place(cell)], count);
  }
  return text.empty() ? "    double unused_;\n" : text;
}

std::string CoderC::header() const {
  return fmt::format(
      "{}#ifndef MAINSYS_H\n#define MAINSYS_H\n\n#include <stdint.h>\n\n"
      "#define MAINSYS_TI ({}) /* time of the first sample */\n"
      "#define MAINSYS_TS ({}) /* time from sample to sample */\n"
      "#define MAINSYS_SAMPLES {:.0f} /* of a whole run */\n\n"
      "typedef struct {{\n{}}} mainsys_in_t;\n\n"
      "typedef struct {{\n{}}} mainsys_out_t;\n\n"
      "typedef struct {{\n  uint64_t k; /* samples done */\n"
      "  struct {{\n{}  }} s; /* signals */\n"
      "  struct {{\n{}  }} x; /* what blocks store from sample to sample */\n"
      "}} mainsys_t;\n\n"
      "void mainsys_init(mainsys_t *m);\n\n"
      "/* Computes one sample. 0, 1 when an assert fails, or 2 when this was the last sample. */\n"
      "int mainsys_step(mainsys_t *m, const mainsys_in_t *in, mainsys_out_t *out);\n\n"
      "void mainsys_terminate(mainsys_t *m);\n\n#endif\n",
      head, number(flat_->times.ti), number(flat_->times.ts), samples(), members(in_names_, "  "),
      members(out_names_, "  "), members(signal_names_, "    "), states());
}

std::string CoderC::tables() const {
  constexpr size_t numbers_in_a_line = 8;
  std::string text;
  for (uint32_t i = 0; i < flat_->tables.size(); ++i) {
    text += fmt::format("static const double table{}[] = {{", i);
    for (size_t k = 0; k < flat_->tables[i].size(); ++k) {
      text += k % numbers_in_a_line == 0 ? "\n    " : " ";
      text += number(flat_->tables[i][k]) + ",";
    }
    text += "\n};\n\n";
  }
  return text;
}

std::string CoderC::init() const {
  std::string text = "void mainsys_init(mainsys_t *m) {\n  m->k = 0;\n";
  for (const Cell& cell : flat_->cells) {
    if (cell.op == Op::constant) {
      text += fmt::format("\n  /* {} */\n  {} = {};\n", title(cell, *model_), signal(cell.signal),
                          expand("$p0", cell));
    }
    if (count_states(cell) == 0) continue;
    text += fmt::format("\n  /* {} */\n", title(cell, *model_));
    const auto initial = initial_states(cell);
    for (size_t i = 0; i < initial.size(); ++i)
      text += fmt::format("  {}[{}] = {};\n", stored(cell), i, number(initial[i]));
    if (is_filled(cell)) {
      const Fill& fill = flat_->fills[cell.state];
      text += fmt::format("  for (uint64_t i = 1; i <= {}; ++i) {}[i] = {};\n", fill.count, stored(cell),
                          number(fill.value));
    }
  }
  return text + "}\n";
}

std::string CoderC::step() const {
  std::string outputs, next;
  for (const Cell& cell : flat_->cells) {
    const std::string_view text = row_of(cell.op).c;
    if (cell.op != Op::constant) outputs += fmt::format("\n  /* {} */\n", title(cell, *model_));
    if (cell.op == Op::require || cell.op == Op::stop) outputs += fmt::format("  {};\n", expand(text, cell));
    for (uint32_t i = 0; i < cell.outputs && cell.op != Op::constant; ++i) {
      outputs += fmt::format("  {} = {};\n", signal(cell.signal + i), value(text, cell, i));
    }
    if (cell.next != Op::end_of_sample) next += fmt::format("  {};\n", expand(row_of(cell.next).c, cell));
  }
  std::string text = "int mainsys_step(mainsys_t *m, const mainsys_in_t *in, mainsys_out_t *out) {\n";
  if (has_op(Op::stop)) text += "  int result = 0;\n";
  if (uses_k_) text += "  const double k = (double)m->k;\n";
  if (uses_time_) text += "  const double t = MAINSYS_TI + k * MAINSYS_TS;\n";
  if (in_names_.empty()) text += "  (void)in;\n";
  text += outputs + "\n";
  for (size_t i = 0; i < out_names_.size(); ++i) {
    text += fmt::format("  out->{} = {};\n", out_names_[i], signal(flat_->outports[i].signal));
  }
  if (out_names_.empty()) text += "  out->unused_ = 0.0;\n";
  if (!next.empty()) text += "\n  /* for the next sample */\n" + next;
  return text + fmt::format("\n  ++m->k;\n  return {};\n}}\n", has_op(Op::stop) ? "result" : "0");
}

std::string CoderC::source() const {
  const std::string code =
      tables() + init() + "\n" + step() + "\nvoid mainsys_terminate(mainsys_t *m) { (void)m; }\n";
  std::string functions;
  for (const std::string& function : called_functions(quoted::kernels_c, "static inline", code)) {
    functions += function + "\n\n";
  }
  return fmt::format("{}#include \"mainsys.h\"\n\n#include <math.h>\n\n{}\n{}{}", head, no_contraction,
                     functions, code);
}

std::string CoderC::main() const {
  std::string names, initial, values;
  for (size_t i = 0; i < out_names_.size(); ++i) {
    names += ',' + attribute_name(flat_->outports[i].name);
    values += fmt::format("    print_number(out.{});\n", out_names_[i]);
  }
  for (size_t i = 0; i < in_names_.size(); ++i) {
    initial += fmt::format("  in.{} = {};\n", in_names_[i], number(flat_->inports[i].initial));
  }
  if (in_names_.empty()) initial = "  in.unused_ = 0.0;\n";
  const std::string_view print =
      values.empty()
          ? ""
          : "static void print_number(double value) {\n  if (value != value) {\n    printf(\",nan\");\n"
            "  } else {\n    printf(\",%.17g\", value);\n  }\n}\n\n";
  return fmt::format(
      "{}#include <stdio.h>\n\n#include \"mainsys.h\"\n\n{}{}"
      "/* Prints every sample of a whole run; 1 when an assert fails. */\n"
      "int main(void) {{\n  static mainsys_t m;\n  mainsys_in_t in;\n  mainsys_out_t out;\n{}"
      "  mainsys_init(&m);\n  printf(\"time{}\\n\");\n"
      "  for (uint64_t k = 0; k < MAINSYS_SAMPLES; ++k) {{\n"
      "    const int result = mainsys_step(&m, &in, &out);\n    if (result == 1) return 1;\n"
      "    printf(\"%.17g\", MAINSYS_TI + (double)k * MAINSYS_TS);\n{}    printf(\"\\n\");\n"
      "    if (result == 2) break;\n  }}\n  mainsys_terminate(&m);\n  return 0;\n}}\n",
      head, std::string(no_contraction) + "\n", print, initial, names, values);
}

}  // namespace

namespace coder_c {

int generate_code(std::string_view path, IMetaModel* model) {
  return generate_with(path, model, [](const FlatModel& flat, const IMetaModel& meta) {
    const CoderC coder(flat, meta);
    return std::vector<std::pair<std::string, std::string>>{
        {"mainsys.h", coder.header()}, {"mainsys.c", coder.source()}, {"main.c", coder.main()}};
  });
}

}  // namespace coder_c

}  // namespace plexo
