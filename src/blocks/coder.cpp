// What the C and the Python generator share: names, order and files.
#include "blocks/coder.h"

#include <fmt/format.h>

#include <algorithm>

#include "blocks/files.h"
#include "blocks/names.h"
#include "runtime/log.h"

namespace plexo {

namespace {

bool is_word(char c) {
  return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Visits every word of a text that is called: names in comments never have a parenthesis after them.
template <typename Visit>
void each_call(std::string_view text, Visit visit) {
  for (size_t i = 0; i < text.size();) {
    size_t end = i;
    while (end < text.size() && is_word(text[end])) ++end;
    if (end > i && end < text.size() && text[end] == '(') visit(text.substr(i, end - i));
    i = std::max(end, i + 1);
  }
}

}  // namespace

std::string decimal(double value) {
  std::string text = fmt::format("{}", value);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

std::vector<std::string> called_functions(std::string_view source, std::string_view opening,
                                          const std::string& text) {
  struct Function {
    std::string_view name;
    std::string_view text;
    bool is_called = false;
  };
  std::vector<Function> functions;
  for (size_t begin = 0; begin < source.size();) {
    const size_t end = std::min(source.find("\n\n", begin), source.size());
    const std::string_view paragraph = source.substr(begin, end - begin);
    begin = end;
    while (begin < source.size() && source[begin] == '\n') ++begin;
    const bool is_first_line = paragraph.starts_with(opening);
    const size_t line = is_first_line ? 0 : paragraph.find(fmt::format("\n{}", opening));
    if (line == std::string_view::npos) continue;
    const size_t parenthesis = paragraph.find('(', line);
    size_t name = parenthesis;
    while (is_word(paragraph[name - 1])) --name;
    functions.push_back({paragraph.substr(name, parenthesis - name), paragraph});
  }

  std::vector<std::string_view> waiting{text};
  while (!waiting.empty()) {
    const std::string_view caller = waiting.back();
    waiting.pop_back();
    each_call(caller, [&](std::string_view called) {
      const auto found = std::ranges::find(functions, called, &Function::name);
      if (found == functions.end() || found->is_called) return;
      found->is_called = true;
      waiting.push_back(found->text);
    });
  }
  std::vector<std::string> result;
  for (const Function& function : functions) {
    if (function.is_called) result.emplace_back(function.text);
  }
  return result;
}

Coder::Coder(const FlatModel& flat)
    : flat_(&flat), signal_names_(flat.signal_count), state_counts_(flat.cells.size()) {
  UniqueNames cells, signals;
  std::vector<size_t> by_state;
  for (size_t i = 0; i < flat.cells.size(); ++i) {
    const Cell& cell = flat.cells[i];
    cell_names_.push_back(cells.make(c_name(flat.cell_names[i])));
    for (uint32_t k = 0; k < cell.outputs; ++k) {
      const std::string name =
          cell.outputs == 1 ? cell_names_[i] : fmt::format("{}_{}", cell_names_[i], k + 1);
      signal_names_[cell.signal + k] = signals.make(name);
    }
    if (!is_filled(cell)) by_state.push_back(i);
  }
  // The states of a cell end where those of the next one begin, in the order in which they were made.
  std::ranges::sort(by_state, {}, [&](size_t i) { return flat.cells[i].block; });
  for (size_t j = 0; j < by_state.size(); ++j) {
    const size_t end = j + 1 < by_state.size() ? flat.cells[by_state[j + 1]].state : flat.states.size();
    state_counts_[by_state[j]] = static_cast<uint32_t>(end) - flat.cells[by_state[j]].state;
  }
}

std::span<const double> Coder::initial_states(const Cell& cell) const {
  static constexpr double place_of_oldest = 0.0;
  if (is_filled(cell)) return {&place_of_oldest, 1};
  return {flat_->states.data() + cell.state, state_counts_[place(cell)]};
}

uint64_t Coder::count_states(const Cell& cell) const {
  return is_filled(cell) ? 1 + flat_->fills[cell.state].count : state_counts_[place(cell)];
}

bool Coder::has_op(Op op) const {
  return std::ranges::any_of(flat_->cells, [=](const Cell& cell) { return cell.op == op; });
}

double Coder::samples() const {
  constexpr double most = 9007199254740992.0;
  return std::min(flat_->samples(), most);
}

std::string Coder::title(const Cell& cell, const IMetaModel& model) const {
  const uint64_t id = flat_->cell_ids[place(cell)];
  IMetaBlock* block = const_cast<IMetaModel&>(model).block(id);
  return fmt::format("{}: {} (block {})", plain_text(full_name(cell)), block->type(), id);
}

std::string Coder::word(std::string_view word, const Cell& cell, uint32_t output) const {
  const auto digit = [&] { return static_cast<uint32_t>(word[1] - '0'); };
  const auto parameter = [&](uint32_t i) { return flat_->parameters[cell.parameter + i]; };
  if (word == "k") uses_k_ = true;
  if (word == "time") uses_time_ = uses_k_ = true;
  if (word == "k") return "k";
  if (word == "time") return "t";
  if (word == "x") return stored(cell);
  if (word == "in") return outer_input(cell.signal);
  if (word == "name") return python_literal(full_name(cell));
  if (word == "bit") return fmt::format("{}", static_cast<int>(parameter(0)) + static_cast<int>(output));
  if (word == "count") return fmt::format("{}", cell.inputs);
  if (word == "others") return fmt::format("{}", cell.inputs - 1);
  switch (word[0]) {
    case 'u':
      return signal(flat_->inputs[cell.input + digit() - 1]);
    case 'p':
      return number(parameter(digit()));
    case 'i':
      return fmt::format("{:.0f}", parameter(digit()));
    case 't':
      return table(cell.table + digit());
    default:
      return fmt::format("{}", flat_->tables[cell.table + digit()].size());
  }
}

// "<<$u > 0|| and >>", without its brackets: once for every input.
std::string Coder::repeat(std::string_view section, const Cell& cell) const {
  uint32_t first = 0;
  if (section.starts_with("2:")) {
    section.remove_prefix(2);
    first = 1;
  }
  const size_t bar = section.find("||");
  const std::string_view item = section.substr(0, bar), separator = section.substr(bar + 2);
  std::string result;
  for (uint32_t i = first; i < cell.inputs; ++i) {
    if (i > first) result += separator;
    const size_t place = item.find("$u");
    result += item.substr(0, place);
    result += signal(flat_->inputs[cell.input + i]);
    result += item.substr(place + 2);
  }
  return result;
}

std::string Coder::expand(std::string_view text, const Cell& cell, uint32_t output) const {
  std::string result;
  for (size_t i = 0; i < text.size();) {
    if (text.substr(i).starts_with("<<")) {
      const size_t end = text.find(">>", i);
      result += repeat(text.substr(i + 2, end - i - 2), cell);
      i = end + 2;
    } else if (text[i] == '$') {
      size_t end = i + 1;
      while (end < text.size() && is_word(text[end])) ++end;
      result += word(text.substr(i + 1, end - i - 1), cell, output);
      i = end;
    } else {
      result += text[i++];
    }
  }
  return result;
}

std::string Coder::terms(const Cell& cell) const {
  std::string result;
  for (uint32_t i = 0; i < cell.inputs; ++i) {
    const std::string input = signal(flat_->inputs[cell.input + i]);
    const double sign = flat_->parameters[cell.parameter + i];
    if (cell.op == Op::sum) {
      result += i == 0 ? (sign < 0.0 ? "-" : "") : (sign < 0.0 ? " - " : " + ");
      result += input;
    } else if (i == 0) {
      result = sign != 0.0 ? quotient("1.0", input) : input;
    } else {
      result = sign != 0.0 ? quotient(result, input) : fmt::format("{} * {}", result, input);
    }
  }
  return result;
}

std::string Coder::value(std::string_view text, const Cell& cell, uint32_t output) const {
  return cell.op == Op::sum || cell.op == Op::product ? terms(cell) : expand(text, cell, output);
}

int generate_with(std::string_view path, IMetaModel* model,
                  std::vector<std::pair<std::string, std::string>> (*generate)(const FlatModel&,
                                                                               const IMetaModel&)) {
  auto& mine = static_cast<MetaModel&>(*model);
  if (mine.meta_process(0) != good) return 1;
  std::string why;
  if (write_files(path, generate(*mine.flat(), mine), why)) return 0;
  mirn3::log::write(mirn3::log::warning, fmt::format("No code is generated: {}", why));
  return 2;
}

}  // namespace plexo
