// Writes a model as one Python class that needs nothing but the standard library.
#include <fmt/format.h>

#include <cmath>

#include "blocks/coder.h"
#include "blocks/names.h"
#include "blocks/quoted.h"

namespace plexo {

namespace {

class CoderPython : public Coder {
 public:
  CoderPython(const FlatModel& flat, const IMetaModel& model) : Coder(flat), model_(&model) {}

  std::string source() const;

 protected:
  std::string number(double value) const override {
    if (std::isnan(value)) return "math.nan";
    if (std::isinf(value)) return value > 0.0 ? "math.inf" : "-math.inf";
    return decimal(value);
  }
  std::string signal(uint32_t index) const override { return "self.s_" + signal_names_[index]; }
  std::string stored(const Cell& cell) const override { return "self.x_" + cell_names_[place(cell)]; }
  std::string table(uint32_t index) const override { return fmt::format("TABLE{}", index); }
  std::string outer_input(uint32_t signal) const override {
    for (const TopPort& port : flat_->inports) {
      if (port.signal == signal)
        return fmt::format("float(inputs.get({}, {}))", python_literal(port.name), number(port.initial));
    }
    return {};
  }
  std::string quotient(const std::string& a, const std::string& b) const override {
    return fmt::format("divide({}, {})", a, b);
  }

 private:
  std::string tables() const;
  std::string init() const;
  std::string step() const;
  std::string main() const;

  const IMetaModel* model_;
};

std::string CoderPython::tables() const {
  constexpr size_t numbers_in_a_line = 8;
  std::string text;
  for (uint32_t i = 0; i < flat_->tables.size(); ++i) {
    text += fmt::format("TABLE{} = [", i);
    for (size_t k = 0; k < flat_->tables[i].size(); ++k) {
      text += k % numbers_in_a_line == 0 ? "\n    " : " ";
      text += number(flat_->tables[i][k]) + ",";
    }
    text += "\n]\n";
  }
  return text;
}

std::string CoderPython::init() const {
  std::string text =
      "    def init(self):\n        self.k = 0  # samples done\n        self.stopped = False\n";
  for (const Cell& cell : flat_->cells) {
    const bool is_constant = cell.op == Op::constant;
    if (!is_constant && count_states(cell) == 0) continue;
    text += fmt::format("        # {}\n", title(cell, *model_));
    if (is_constant) {
      text += fmt::format("        {} = {}\n", signal(cell.signal), expand("$p0", cell));
      continue;
    }
    std::string initial;
    for (const double value : initial_states(cell)) initial += (initial.empty() ? "" : ", ") + number(value);
    text += fmt::format("        {} = [{}]", stored(cell), initial);
    if (is_filled(cell)) {
      const Fill& fill = flat_->fills[cell.state];
      text += fmt::format(" + [{}] * {}", number(fill.value), fill.count);
    }
    text += '\n';
  }
  return text;
}

std::string CoderPython::step() const {
  std::string body, next;
  for (const Cell& cell : flat_->cells) {
    if (cell.op == Op::constant) continue;
    const std::string_view text = row_of(cell.op).python;
    body += fmt::format("        # {}\n", title(cell, *model_));
    if (cell.op == Op::require || cell.op == Op::stop)
      body += fmt::format("        {}\n", expand(text, cell));
    for (uint32_t i = 0; i < cell.outputs; ++i) {
      body += fmt::format("        {} = {}\n", signal(cell.signal + i), value(text, cell, i));
    }
    if (cell.next != Op::end_of_sample)
      next += fmt::format("        {}\n", expand(row_of(cell.next).python, cell));
  }
  std::string text =
      "    def step(self, inputs):\n        \"\"\"Computes one sample: values of the inports by name, to "
      "those of the outports.\"\"\"\n";
  if (uses_k_) text += "        k = float(self.k)\n";
  if (uses_time_) text += "        t = self.TI + k * self.TS\n";
  text += body + "        outputs = {\n";
  for (const TopPort& port : flat_->outports) {
    text += fmt::format("            {}: {},\n", python_literal(port.name), signal(port.signal));
  }
  text += "        }\n";
  if (!next.empty()) text += "        # for the next sample\n" + next;
  return text + "        self.k += 1\n        return outputs\n";
}

std::string CoderPython::main() const {
  std::string names;
  for (const TopPort& port : flat_->outports) names += ',' + attribute_name(port.name);
  return fmt::format(
      "def main():\n    \"\"\"Prints every sample of a whole run.\"\"\"\n    model = Mainsys()\n    "
      "print(\"time{}\")\n"
      "    for k in range(model.SAMPLES):\n        values = model.step({{}}).values()\n"
      "        print(\",\".join(\"%.17g\" % value for value in (model.TI + float(k) * model.TS, *values)))\n"
      "        if model.stopped:\n            break\n    model.terminate()\n\n\n"
      "if __name__ == \"__main__\":\n    main()\n",
      names);
}

std::string CoderPython::source() const {
  const std::string body = init() + "\n" + step();
  const std::string code = fmt::format(
      "class Mainsys:\n    TI = {}  # time of the first sample\n    TS = {}  # time from sample to sample\n"
      "    SAMPLES = {:.0f}  # of a whole run\n\n    def __init__(self):\n        self.init()\n\n{}\n"
      "    def terminate(self):\n        pass\n\n\n{}",
      number(flat_->times.ti), number(flat_->times.ts), samples(), body, main());
  std::string functions;
  for (const std::string& function : called_functions(quoted::kernels_python, "def ", code)) {
    functions += function + "\n\n\n";
  }
  const std::string lists = tables();
  std::string imports;
  for (const std::string_view module : {"math", "struct"}) {
    const std::string use = fmt::format("{}.", module);
    if ((functions + code + lists).find(use) != std::string::npos)
      imports += fmt::format("import {}\n", module);
  }
  return fmt::format(
      "\"\"\"Made by kvalo from a block model. Prints every sample of a whole run when it is "
      "started.\"\"\"\n\n{}{}{}{}{}",
      imports, imports.empty() ? "" : "\n", lists, lists.empty() ? "" : "\n\n", functions + code);
}

}  // namespace

namespace coder_py {

int generate_code(std::string_view path, IMetaModel* model) {
  return generate_with(path, model, [](const FlatModel& flat, const IMetaModel& meta) {
    return std::vector<std::pair<std::string, std::string>>{{"mainsys.py", CoderPython(flat, meta).source()}};
  });
}

}  // namespace coder_py

}  // namespace plexo
