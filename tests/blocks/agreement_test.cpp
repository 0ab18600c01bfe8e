// A simulation, the generated C and the generated Python give the same bits, for every kind, for the example
// models, and for random diagrams.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <set>

#include "blocks/kind.h"
#include "blocks/model.h"
#include "runtime/home.h"

namespace {

using namespace blocks_test;
namespace fs = std::filesystem;

// What a command prints; empty with a failure of the test if it fails.
std::string output_of(const std::string& command) {
  std::FILE* pipe = ::popen(("(" + command + ") 2>&1").c_str(), "r");
  if (pipe == nullptr) return {};
  std::string result;
  char buffer[65536];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.append(buffer, n);
  const int status = ::pclose(pipe);
  EXPECT_EQ(status, 0) << command << "\n" << result.substr(0, 3000);
  return result;
}

bool has(const char* compiler) {
  return std::system(fmt::format("command -v {} >/dev/null", compiler).c_str()) == 0;
}

// The simulation in the words of the generated programs.
std::string simulated(Model& model, const std::vector<std::string>& shown) {
  EXPECT_EQ(model.run(), 0);
  std::string text = "time";
  std::vector<Numbers> columns;
  for (const std::string& name : shown) {
    text += ',' + name;
    columns.push_back(model.shown(name));
    EXPECT_EQ(columns.back().size(), model.exec->samples()) << name;
  }
  text += '\n';
  for (size_t k = 0; k < model.exec->samples(); ++k) {
    char number[40];
    std::snprintf(number, sizeof number, "%.17g", model.exec->time(k));
    text += number;
    for (const Numbers& column : columns) {
      std::snprintf(number, sizeof number, ",%.17g", std::isnan(column[k]) ? NaN : column[k]);
      text += number;
    }
    text += '\n';
  }
  return text;
}

void expect_same(const std::string& wanted, const std::string& got, const std::string& by) {
  if (wanted == got) return;
  size_t i = 0;
  while (i < std::min(wanted.size(), got.size()) && wanted[i] == got[i]) ++i;
  const size_t line = wanted.rfind('\n', i) + 1;
  ADD_FAILURE() << by << " differs at byte " << i - line << " of the line\n"
                << wanted.substr(line, std::min<size_t>(i - line + 40, 3000)) << "\nand not\n"
                << got.substr(line, std::min<size_t>(i - line + 40, 3000));
}

class AgreementTest : public Home {
 protected:
  void agree(Model& model, const std::vector<std::string>& shown, const std::string& options = "-O2",
             const std::vector<const char*>& compilers = {"gcc", "clang"}) {
    const std::string wanted = simulated(model, shown), out = (folder / "out").string();
    ASSERT_EQ(plexo::coder_c::generate_code(out, model.meta.get()), 0);
    ASSERT_EQ(plexo::coder_py::generate_code(out, model.meta.get()), 0);
    for (const char* compiler : compilers) {
      if (!has(compiler)) continue;
      output_of(
          fmt::format("cd {} && {} {} -std=c11 -Wall -Wextra -Werror -pedantic -o run mainsys.c main.c -lm",
                      out, compiler, options));
      expect_same(wanted, output_of(out + "/run"), compiler);
    }
    expect_same(wanted, output_of("python3 " + out + "/mainsys.py"), "Python");
  }
};

// What a random block of a kind may be given; nothing for those that only structure a model.
class Diagram {
 public:
  Diagram(Model& model, uint64_t parent, unsigned seed) : model_(model), parent_(parent), random_(seed) {}

  // A block of this kind with random properties, fed by earlier ones.
  void add(const plexo::Kind& kind) {
    using plexo::Shape;
    Given given;
    const auto give = [&](plexo::Property property, plexo::value_t value) {
      given.emplace_back(plexo::name_of(property).data(), std::move(value));
    };
    std::vector<std::pair<plexo::Property, double>> numbers;
    for (const auto& rule : kind.numbers) {
      if (below(3) == 0 && rule.property != plexo::Property::coeff_a) continue;
      double value = std::round((uniform() * 8 - 3) * 4) / (below(2) ? 4 : 3);
      if (rule.bounds.is_whole) value = std::floor(uniform() * 8);
      value = std::clamp(value, std::max(rule.bounds.lowest, -1e9), std::min(rule.bounds.highest, 1e9));
      if (rule.bounds.lowest == plexo::least_positive) value = std::max(value, 0.125);
      if (rule.property == plexo::Property::time_on) value = std::abs(value) + 0.01;
      numbers.emplace_back(rule.property, value);
    }
    order(numbers, plexo::Property::min, plexo::Property::max);
    order(numbers, plexo::Property::lsb, plexo::Property::msb);
    for (const auto& [property, value] : numbers) give(property, value);
    for (const auto& rule : kind.texts) {
      if (rule.property == plexo::Property::path || rule.property == plexo::Property::target) continue;
      if (!rule.choices.empty()) give(rule.property, std::string(rule.choices[below(rule.choices.size())]));
    }
    unsigned inputs = kind.ports.inputs, outputs = kind.ports.outputs;
    if (kind.type == "sum" || kind.type == "product") {
      std::string signs;
      for (inputs = 1 + below(4); signs.size() < inputs;)
        signs += kind.type == "sum" ? "+-"[below(2)] : "*/"[below(2)];
      std::erase_if(given, [](const auto& entry) { return entry.first == std::string_view("inportCount"); });
      give(plexo::Property::operation, signs);
    }
    if (!kind.lists.empty()) give_tables(kind, give);
    uint64_t id = 0;
    if (kind.type == "logic" && std::ranges::any_of(given, [](const auto& e) {
          return e.first == std::string_view("operator") && std::get<std::string>(e.second) == "not";
        })) {
      std::erase_if(given, [](const auto& entry) { return entry.first == std::string_view("inportCount"); });
    }
    id = model_.add(kind.type.data(), given, parent_);
    inputs = static_cast<unsigned>(model_.meta->number(id, "inportCount").value());
    outputs = static_cast<unsigned>(model_.meta->number(id, "outportCount").value());
    for (unsigned port = 1; port <= inputs; ++port) {
      const auto& [from, port_from] = outputs_[below(outputs_.size())];
      model_.link(from, id, static_cast<int>(port), port_from);
    }
    for (unsigned port = 1; port <= outputs; ++port) outputs_.emplace_back(id, static_cast<int>(port));
  }

  // A loop, closed by a delay.
  void close_loop() {
    const uint64_t sum = model_.add("sum", {}, parent_),
                   limit = model_.add("saturation", {{"min", -9.0}, {"max", 9.0}}, parent_);
    const uint64_t delay = model_.add("delay", {{"timeOn", 0.03}}, parent_);
    model_.link(outputs_.back().first, sum, 1, outputs_.back().second);
    model_.link(delay, sum, 2), model_.link(sum, limit), model_.link(limit, delay);
    outputs_.emplace_back(limit, 1);
  }

  const std::vector<std::pair<uint64_t, int>>& outputs() const { return outputs_; }
  size_t below(size_t n) { return random_() % n; }

 private:
  double uniform() { return static_cast<double>(random_() % 1000003) / 1000003.0; }
  static void order(std::vector<std::pair<plexo::Property, double>>& numbers, plexo::Property low,
                    plexo::Property high) {
    const auto find = [&](plexo::Property p) {
      return std::ranges::find(numbers, p, &std::pair<plexo::Property, double>::first);
    };
    if (find(low) == numbers.end() || find(high) == numbers.end()) {
      std::erase_if(numbers, [=](const auto& entry) { return entry.first == low || entry.first == high; });
    } else if (find(low)->second > find(high)->second) {
      std::swap(find(low)->second, find(high)->second);
    }
  }
  Numbers ascending(size_t n) {
    Numbers result{-2.0};
    while (result.size() < n) result.push_back(result.back() + 0.1 + uniform());
    return result;
  }
  Numbers any(size_t n) {
    Numbers result;
    while (result.size() < n) result.push_back(uniform() * 4 - 2);
    return result;
  }
  template <typename Give>
  void give_tables(const plexo::Kind& kind, Give give) {
    const size_t n = 1 + below(5), m = 1 + below(4);
    if (kind.type == "series") give(plexo::Property::obj, series(ascending(9), any(9)));
    if (kind.type == "lut1d" || kind.type == "lut2d") give(plexo::Property::bp1, list(ascending(n)));
    if (kind.type == "lut1d") give(plexo::Property::out, list(any(n)));
    if (kind.type != "lut2d") return;
    give(plexo::Property::bp2, list(ascending(m)));
    std::vector<Numbers> table;
    while (table.size() < n) table.push_back(any(m));
    give(plexo::Property::out, rows(table));
  }

  Model& model_;
  uint64_t parent_;
  std::mt19937 random_;
  std::vector<std::pair<uint64_t, int>> outputs_;
};

bool is_source(const plexo::Kind& kind) { return kind.family == "Sources"; }
bool is_usable(const plexo::Kind& kind) {
  return kind.lower != nullptr && kind.type != "inport" && kind.type != "assert" && kind.type != "stop";
}

// A diagram in a system of its own, some of whose signals leave through outports.
void add_diagram(Model& model, unsigned seed, size_t blocks, std::vector<std::string>& shown) {
  const uint64_t system = model.add("subsys", {}, 1, fmt::format("part {}", seed).c_str());
  Diagram diagram(model, system, seed);
  std::vector<const plexo::Kind*> sources, others;
  for (const plexo::Kind& kind : plexo::all_kinds()) {
    if (is_usable(kind)) (is_source(kind) ? sources : others).push_back(&kind);
  }
  for (int i = 0; i < 3; ++i) diagram.add(*sources[diagram.below(sources.size())]);
  for (size_t i = 0; i < blocks; ++i) {
    diagram.add(*others[(diagram.below(2) ? i + seed : diagram.below(others.size())) % others.size()]);
    if (i % 8 == 3) diagram.close_loop();
  }
  int port = 1;
  for (size_t i = 2; i < diagram.outputs().size(); i += 3) {
    const auto& [from, port_from] = diagram.outputs()[i];
    model.link(from, model.add("outport", {}, system), 1, port_from);
    shown.push_back(fmt::format("p{}_{}", seed, port));
    model.show(system, shown.back(), port++);
  }
}

// Many in one model, so that the compilers start only a few times.
TEST_F(AgreementTest, RandomDiagrams) {
  constexpr unsigned models = 5, diagrams = 50;
  for (unsigned m = 0; m < models; ++m) {
    SCOPED_TRACE(fmt::format("diagrams from {}", m * diagrams));
    Model model;
    model.meta->set_time(-1.0, 20.0, m % 2 ? 0.01 : 1.0 / 64);
    std::vector<std::string> shown;
    for (unsigned seed = m * diagrams; seed < (m + 1) * diagrams; ++seed) add_diagram(model, seed, 12, shown);
    agree(model, shown, "-O2", {m % 2 == 0 || !has("clang") ? "gcc" : "clang"});
    if (HasFailure()) return;
  }
}

TEST_F(AgreementTest, SanitizersFindNothingInGeneratedCode) {
  Model model;
  model.meta->set_time(0.0, 5.0, 0.01);
  std::vector<std::string> shown;
  for (unsigned seed = 1000; seed < 1008; ++seed) add_diagram(model, seed, 24, shown);
  agree(model, shown, "-O1 -fsanitize=address,undefined -fno-sanitize-recover=all", {"gcc"});
}

// Every operation of every kind, on inputs that are out of the ordinary.
TEST_F(AgreementTest, EveryKindOnOddInputs) {
  Model model;
  const Numbers odd{0,
                    -0.0,
                    1,
                    -1,
                    0.5,
                    -0.5,
                    1.5,
                    2.5,
                    -2.5,
                    1e-320,
                    5e-324,
                    1e300,
                    -1e300,
                    709.8,
                    -745.2,
                    NaN,
                    inf,
                    -inf,
                    4294967295.0,
                    4294967296.0,
                    9.3e18,
                    -9.3e18,
                    0.1,
                    3,
                    33,
                    0.49999999999999994,
                    4503599627370497.5,
                    127.9,
                    -128.9};
  const size_t n = odd.size();
  model.meta->set_time(0, static_cast<double>(n * n - 1), 1);
  Numbers stamps, first, second;
  for (size_t k = 0; k < n * n; ++k) {
    stamps.push_back(static_cast<double>(k));
    first.push_back(odd[k % n]);
    second.push_back(odd[k / n]);
  }
  const uint64_t u = model.add("series", {{"obj", series(stamps, first)}}),
                 v = model.add("series", {{"obj", series(stamps, second)}});
  std::vector<std::string> shown;
  std::set<std::string_view> kinds;
  const auto add = [&](const plexo::Kind& kind, const Given& given) {
    const uint64_t id = model.add(kind.type.data(), given);
    const auto inputs = static_cast<int>(model.meta->number(id, "inportCount").value());
    const auto outputs = static_cast<int>(model.meta->number(id, "outportCount").value());
    for (int i = 1; i <= inputs; ++i) model.link(i % 2 ? u : v, id, i);
    for (int i = 1; i <= outputs; ++i) {
      shown.push_back(fmt::format("{}_{}_{}", kind.type, id, i));
      model.show(id, shown.back(), i);
    }
    kinds.insert(kind.type);
  };
  for (const plexo::Kind& kind : plexo::all_kinds()) {
    if (kind.type == "subsys" || kind.type == "outport" || kind.type == "goto" || kind.type == "from")
      continue;
    if (kind.type == "assert" || kind.type == "stop") continue;  // looked at below
    Given given;
    if (kind.type == "series") given = {{"obj", series({3, 70, 500}, {1, inf, NaN})}};
    if (kind.type == "lut1d") given = {{"bp1", list({-1, 0.5, 3})}, {"out", list({1, -2, 7})}};
    if (kind.type == "lut2d")
      given = {{"bp1", list({-1, 3})}, {"bp2", list({0, 1})}, {"out", rows({{1, -2}, {7, 1e300}})}};
    if (kind.type == "unpack") given = {{"msb", 12.0}, {"lsb", 3.0}, {"coeffB", 0.1}};
    if (kind.type == "random") given = {{"seed", 5.0}, {"min", -1e-3}};
    const auto text_rule =
        std::ranges::find_if(kind.texts, [](const auto& rule) { return !rule.choices.empty(); });
    if (text_rule == kind.texts.end()) {
      add(kind, given);
      continue;
    }
    for (const std::string_view choice : text_rule->choices) {
      Given with = given;
      with.emplace_back(plexo::name_of(text_rule->property).data(), std::string(choice));
      add(kind, with);
    }
  }
  add(*std::ranges::find(plexo::all_kinds(), "hold", &plexo::Kind::type), {{"stepTime", 7.0}});
  add(*std::ranges::find(plexo::all_kinds(), "delay", &plexo::Kind::type),
      {{"timeOn", 12.0}, {"initialValue", 0.1}});
  add(*std::ranges::find(plexo::all_kinds(), "sum", &plexo::Kind::type), {{"operator", text("--+")}});
  add(*std::ranges::find(plexo::all_kinds(), "product", &plexo::Kind::type), {{"operator", text("/*/")}});
  EXPECT_EQ(kinds.size(), 53u - 6);
  agree(model, shown);
}

TEST_F(AgreementTest, ExampleModels) {
  for (const auto& entry : fs::directory_iterator(fs::path(KVALO_ROOT) / "examples/models")) {
    SCOPED_TRACE(entry.path().string());
    Model model;
    ASSERT_EQ(plexo::json::load(model.meta.get(), entry.path().string()), 0);
    std::vector<std::pair<double, std::string>> ports;
    for (uint64_t id = 2; id <= model.meta->count(); ++id) {
      const auto* block = model.meta->block(id);
      if (block->type() == "outport" && block->parent() == 1)
        ports.emplace_back(*model.meta->number(id, "portNumber"), block->name());
    }
    std::ranges::sort(ports);
    std::vector<std::string> shown;
    for (const auto& port : ports) shown.push_back(port.second);
    agree(model, shown);
  }
}

// Named like an attack: nothing of it becomes code or a path, and everything compiles.
TEST_F(AgreementTest, HostileNames) {
  Model model;
  model.meta->set_time(0, 2, 1);
  const char* names[] = {"*/ #error",
                         "int",
                         "//\\\n#error x",
                         "\"\"\"\nraise SystemExit",
                         "?\?/",
                         "../../etc",
                         "a b",
                         "a-b",
                         "\xe2\x80\xae",
                         "\xff\xfe",
                         "M_PI",
                         "INT32_MAX",
                         "__LINE__",
                         "linux",
                         "self.k",
                         "main",
                         "",
                         "printf",
                         "NAN",
                         "%n%s",
                         "unused_",
                         "class"};
  std::vector<std::string> shown;
  uint64_t last = model.add("clock");
  for (const char* name : names) {
    const uint64_t gain = model.add("gain", {{"expression", 1.5}}, 1, name);
    model.link(last, gain);
    last = gain;
  }
  for (const char* name : {"int", "M_PI", "x y", "__LINE__"}) {
    shown.push_back(name == std::string("x y") ? "x_y" : name);
    model.show(last, name);
  }
  const uint64_t in = model.add("inport", {{"initialValue", 4.0}}, 1, "\"] + __import__('os')");
  model.show(in, "in");
  shown.push_back("in");
  agree(model, shown);
  const std::string python = content(folder / "out/mainsys.py"), c = content(folder / "out/mainsys.c");
  EXPECT_THAT(c, testing::Not(testing::HasSubstr("\n#error")));
  EXPECT_THAT(c, testing::HasSubstr("/* a-b: gain (block 10) */"));
  EXPECT_THAT(python, testing::HasSubstr(R"py(inputs.get("\"] + __import__('os')", 4.0))py"));
}

TEST_F(AgreementTest, FilesAreTheSameEachTimeAndWholeOrNotThere) {
  Model model;
  EXPECT_EQ(model.add("gain"), 2u);
  EXPECT_EQ(plexo::coder_c::generate_code((folder / "c").string(), model.meta.get()), 1);  // an open input
  EXPECT_FALSE(fs::exists(folder / "c"));
  model.link(model.add("clock"), 2);
  model.show(2, "y");
  ASSERT_EQ(plexo::coder_c::generate_code((folder / "c").string(), model.meta.get()), 0);
  const std::string first = content(folder / "c/mainsys.c");
  ASSERT_EQ(plexo::coder_c::generate_code((folder / "c").string(), model.meta.get()), 0);
  EXPECT_EQ(content(folder / "c/mainsys.c"), first);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "c"), {}), 3);
  EXPECT_EQ(plexo::coder_py::generate_code((folder / "no/where").string(), model.meta.get()), 2);
  make("file", "");
  EXPECT_EQ(plexo::coder_py::generate_code((folder / "file").string(), model.meta.get()), 2);
}

// A failed assert ends the program with status 1 and the class with an exception; a stop ends both well.
TEST_F(AgreementTest, AssertAndStop) {
  Model model;
  model.meta->set_time(0, 9, 1);
  const uint64_t clock = model.add("clock"),
                 late = model.add("compare", {{"operator", text(">=")}, {"expression", 3.0}});
  model.link(clock, late);
  model.link(late, model.add("stop"));
  model.show(clock, "t");
  agree(model, {"t"});
  const uint64_t early = model.add("compare", {{"operator", text("<")}, {"expression", 2.0}});
  model.link(clock, early);
  model.link(early, model.add("assert", {}, 1, "limit"));
  ASSERT_EQ(plexo::coder_c::generate_code((folder / "out").string(), model.meta.get()), 0);
  ASSERT_EQ(plexo::coder_py::generate_code((folder / "out").string(), model.meta.get()), 0);
  const std::string out = (folder / "out").string();
  EXPECT_EQ(output_of(fmt::format(
                "cd {} && cc -Wall -Werror -o run mainsys.c main.c -lm && ./run || echo status $?", out)),
            "time,t\n0,0\n1,1\nstatus 1\n");
  EXPECT_THAT(output_of(fmt::format("python3 {}/mainsys.py || true", out)),
              testing::HasSubstr("AssertionError: limit"));
}

}  // namespace
