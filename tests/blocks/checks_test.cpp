// Every way in which a model can be wrong gives its code and its block, in the stated order.
#include <gmock/gmock.h>

#include <functional>
#include <random>

#include "blocks/model.h"
#include "runtime/home.h"

namespace {

using namespace blocks_test;
using plexo::Code;

struct Case {
  const char* what;
  int code;
  uint64_t failed;
  std::function<void(Model&)> build;
};

// A block of this kind with each input fed by a constant; its id is 2.
uint64_t fed(Model& model, const char* type, const Given& given, int inputs) {
  const uint64_t block = model.add(type, given);
  for (int i = 1; i <= inputs; ++i) model.link(model.add("const"), block, i);
  return block;
}

std::function<void(Model&)> one(const char* type, Given given, int inputs = 1) {
  return [=](Model& model) { fed(model, type, given, inputs); };
}

const Case cases[] = {
    {"no period", Code::bad_period, 1, [](Model& m) { m.meta->set_time(0, 10, 0); }},
    {"NaN period before bad times", Code::bad_period, 1, [](Model& m) { m.meta->set_time(5, 1, NaN); }},
    {"end before start", Code::bad_times, 1, [](Model& m) { m.meta->set_time(5, 5, 1); }},
    {"infinite end", Code::bad_times, 1, [](Model& m) { m.meta->set_time(0, inf, 1); }},
    {"nine inports", Code::too_many_inputs, 2, [](Model& m) {
       const uint64_t system = m.add("subsys");
       for (int i = 0; i < 9; ++i) m.add("inport", {}, system);
     }},
    {"an expression without an interpreter", Code::expression_failed, 2, one("const", {{"obj", text("1 + 1")}}, 0)},
    {"a list for a number", Code::expression_no_number, 2, one("const", {{"obj", list({1, 2})}}, 0)},
    {"a number for a list", Code::expression_no_number, 2, one("lut1d", {{"bp1", 1.0}, {"out", list({1})}})},
    {"rows for a list", Code::expression_no_number, 2, one("lut1d", {{"bp1", rows({{1}})}, {"out", list({1})}})},
    {"no series", Code::expression_no_number, 2, one("series", {{"obj", 1.0}}, 0)},
    {"NaN", Code::bad_value, 2, one("gain", {{"expression", NaN}})},
    {"infinite", Code::bad_value, 2, one("linear", {{"coeffB", inf}})},
    {"min above max", Code::bad_value, 2, one("saturation", {{"min", 1.0}, {"max", 0.0}})},
    {"min above the default max", Code::bad_value, 2, one("relay", {{"min", 1.0}})},
    {"lsb above msb", Code::bad_value, 2, one("unpack", {{"lsb", 3.0}, {"msb", 2.0}})},
    {"msb too high", Code::bad_value, 2, one("unpack", {{"msb", 63.0}})},
    {"half a bit", Code::bad_value, 2, one("unpack", {{"msb", 2.5}})},
    {"bits beyond the word", Code::bad_value, 2, one("bits", {{"lsb", 60.0}})},
    {"unknown operator", Code::bad_value, 2, one("math", {{"operator", text("sinh")}})},
    {"unknown sign", Code::bad_value, 2, one("sum", {{"operator", text("+*")}}, 2)},
    {"unknown type", Code::bad_value, 2, one("cast", {{"type", text("int64")}})},
    {"not of two", Code::bad_value, 2, one("logic", {{"operator", text("not")}, {"inportCount", 2.0}}, 2)},
    {"a time constant of 0", Code::bad_value, 2, one("lag", {{"coeffA", 0.0}})},
    {"a negative rate", Code::bad_value, 2, one("ratelimit", {{"rise", -1.0}})},
    {"too long a delay", Code::bad_value, 2, one("delay", {{"timeOn", 10001.0}})},
    {"no pulse at all", Code::bad_value, 2, one("pulse", {{"timeOn", 0.0}, {"timeOff", -1.0}}, 0)},
    {"breakpoints that stand still", Code::bad_value, 2, one("lut1d", {{"bp1", list({1, 1})}, {"out", list({1, 2})}})},
    {"a NaN in a table", Code::bad_value, 2, one("lut1d", {{"bp1", list({1})}, {"out", list({NaN})}})},
    {"stamps that decrease", Code::bad_value, 2, one("series", {{"obj", series({2, 1}, {0, 0})}}, 0)},
    {"a series without samples", Code::bad_value, 2, one("series", {{"obj", series({}, {})}}, 0)},
    {"a port number twice", Code::bad_value, 4, [](Model& m) {
       const uint64_t system = m.add("subsys");
       m.add("inport", {{"portNumber", 1.0}}, system);
       m.add("inport", {{"portNumber", 1.0}}, system);
     }},
    {"a gap in port numbers", Code::bad_value, 3, [](Model& m) { m.add("outport", {{"portNumber", 2.0}}, m.add("subsys")); }},
    {"two links into one input", Code::bad_value, 2, [](Model& m) { m.link(m.add("const"), fed(m, "gain", {}, 1)); }},
    {"one name of two signals", Code::bad_value, 4, [](Model& m) {
       const uint64_t sum = m.add("sum");
       m.link(m.add("const"), sum, 1, 1, "a b");
       m.link(m.add("const"), sum, 2, 1, "a_b");
     }},
    {"two outports of one name", Code::bad_value, 4, [](Model& m) {
       const uint64_t source = m.add("const");
       m.show(source, "y");
       m.show(source, "y");
     }},
    {"an outport with the name of another signal", Code::bad_value, 3, [](Model& m) {
       m.show(m.add("const"), "y");
       m.link(m.add("const"), m.add("gain"), 1, 1, "y");
     }},
    {"a table of another size", Code::sizes_differ, 2, one("lut1d", {{"bp1", list({1, 2})}, {"out", list({1})}})},
    {"a row of another length", Code::sizes_differ, 2,
     one("lut2d", {{"bp1", list({1, 2})}, {"bp2", list({1, 2})}, {"out", rows({{1, 2}, {3}})}}, 2)},
    {"signs for other inputs", Code::sizes_differ, 2, one("sum", {{"operator", text("+-")}, {"inportCount", 3.0}}, 3)},
    {"a target twice", Code::target_taken, 4, [](Model& m) {
       fed(m, "goto", {{"target", text("a")}}, 1);
       m.add("goto", {{"target", text("a")}});
     }},
    {"cast", Code::cast_not_linked, 3, [](Model& m) { m.add("gain"), m.add("cast"); }},
    {"from", Code::from_without_goto, 3, [](Model& m) { m.add("gain"), m.add("from", {{"target", text("a")}}); }},
    {"goto that nobody reads", Code::goto_not_linked, 2, one("goto", {{"target", text("a")}})},
    {"goto without a link", Code::goto_not_linked, 3, [](Model& m) {
       m.add("from", {{"target", text("a")}});
       m.add("goto", {{"target", text("a")}});
     }},
    {"open input", Code::port_not_linked, 2, one("sum", {}, 1)},
    {"open outport", Code::port_not_linked, 2, one("outport", {}, 0)},
    {"open system", Code::port_not_linked, 2, [](Model& m) { m.add("inport", {}, m.add("subsys")); }},
    {"link to nobody", Code::port_not_linked, 2, [](Model& m) { m.link(m.add("const"), 77); }},
    {"link to the top block", Code::port_not_linked, 2, [](Model& m) { m.link(m.add("const"), 1); }},
    {"link to port 2", Code::port_not_linked, 4, [](Model& m) { fed(m, "gain", {}, 1), m.link(m.add("const"), 2, 2); }},
    {"link to port -1", Code::port_not_linked, 4, [](Model& m) { fed(m, "gain", {}, 1), m.link(m.add("const"), 2, -1); }},
    {"link across systems", Code::port_not_linked, 4, [](Model& m) {
       const uint64_t system = m.add("subsys"), inner = m.add("const", {}, system);
       m.link(inner, m.add("gain"));
     }},
    {"loop", Code::algebraic_loop, 2, [](Model& m) {
       const uint64_t a = m.add("gain"), b = m.add("gain");
       m.link(a, b), m.link(b, a);
     }},
    {"loop of wires alone", Code::algebraic_loop, 2, [](Model& m) {
       const uint64_t from = m.add("from", {{"target", text("a")}});
       m.link(from, m.add("goto", {{"target", text("a")}}));
     }},
    {"loop through a system", Code::algebraic_loop, 5, [](Model& m) {
       const uint64_t system = m.add("subsys"), in = m.add("inport", {}, system), out = m.add("outport", {}, system);
       const uint64_t gain = m.add("gain");
       m.link(in, out), m.link(system, gain), m.link(gain, system);
     }},
    {"no loop through a delay", 0, 0, [](Model& m) {
       const uint64_t a = m.add("gain"), b = m.add("delay");
       m.link(a, b), m.link(b, a);
     }},
};

class ChecksTest : public Home {};

TEST_F(ChecksTest, EachFaultGivesItsCodeAndItsBlock) {
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    Model model;
    one.build(model);
    EXPECT_EQ(model.check(), one.code);
    EXPECT_EQ(model.meta->failed(), one.failed);
    EXPECT_EQ(model.meta->tiers() != 0, one.code == 0);
  }
}

TEST_F(ChecksTest, EarlierChecksComeFirst) {
  Model model;
  const uint64_t a = model.add("gain"), b = model.add("gain");
  model.link(a, b), model.link(b, a);
  EXPECT_EQ(model.check(), Code::algebraic_loop);
  EXPECT_THAT(log_lines("Algebraic loop: block 2 (gain2) -> block 3 (gain3) -> block 2"), testing::SizeIs(1));
  EXPECT_EQ(model.meta->meta_process(1), 0);  // for editors: not sorted
  model.add("sum");
  EXPECT_EQ(model.check(), Code::port_not_linked);
  model.add("goto", {{"target", text("t")}});
  EXPECT_EQ(model.check(), Code::goto_not_linked);
  model.add("from", {{"target", text("u")}});
  EXPECT_EQ(model.check(), Code::from_without_goto);
  model.add("cast");
  EXPECT_EQ(model.check(), Code::cast_not_linked);
  model.add("goto", {{"target", text("t")}});
  EXPECT_EQ(model.check(), Code::target_taken);
  model.add("lut1d", {{"bp1", list({1, 2})}, {"out", list({1})}});
  EXPECT_EQ(model.check(), Code::sizes_differ);
  model.add("gain", {{"expression", NaN}});
  EXPECT_EQ(model.check(), Code::bad_value);
  model.add("const", {{"obj", list({1})}});
  EXPECT_EQ(model.check(), Code::expression_no_number);
  model.meta->set_time(1, 0, 1);
  EXPECT_EQ(model.check(), Code::bad_times);
  model.meta->set_time(1, 0, -1);
  EXPECT_EQ(model.check(), Code::bad_period);
}

TEST_F(ChecksTest, BuildingRefusesWhatCannotBe) {
  Model model;
  const auto why = [&](const char* type, const Given& given, uint64_t parent = 1) {
    return message_of<mirn3::exc::error_t>([&] { model.add(type, given, parent); });
  };
  EXPECT_EQ(why("sum", {{"inportCount", 9.0}}), "Block cannot have more than 8 inports");
  EXPECT_EQ(why("math", {}), "Argument 'operator' cannot be empty");
  EXPECT_EQ(why("goto", {{"target", text("")}}), "Argument 'target' cannot be empty");
  EXPECT_EQ(why("lut1d", {{"bp1", list({})}, {"out", list({1})}}), "Argument 'bp1' cannot be empty");
  EXPECT_EQ(why("const", {}, 9), "There's no block with id '9'");
  EXPECT_EQ(why("const", {}, model.add("gain")), "Invalid properties value");
  EXPECT_EQ(why("subsys", {{"path", text("/nowhere.json")}}), "Error loading file '/nowhere.json'");
  EXPECT_EQ(model.meta->count(), 2u);
  model.add("gain", {{"frequency", 3.0}});
  EXPECT_THAT(log_lines("Property 'frequency' is ignored: a block of type 'gain'"), testing::SizeIs(1));
  uint64_t deep = 1;
  for (int i = 0; i < 64; ++i) deep = model.add("subsys", {}, deep);
  EXPECT_EQ(why("subsys", {}, deep), "Invalid properties value");
}

TEST_F(ChecksTest, NumbersOfAModel) {
  Model model;
  const uint64_t sum = model.add("sum", {{"operator", text("+-+")}}),
                 unpack = model.add("unpack", {{"msb", 5.0}});
  model.add("inport"), model.add("inport", {{"portNumber", 3.0}});
  const uint64_t second = model.add("inport");
  for (const auto& [id, key, value] :
       std::vector<std::tuple<uint64_t, const char*, double>>{{sum, "inportCount", 3},
                                                              {sum, "outportCount", 1},
                                                              {unpack, "msb", 5},
                                                              {unpack, "coeffA", 1},
                                                              {1, "inportCount", 3},
                                                              {second, "portNumber", 2},
                                                              {second, "parent", 1}}) {
    EXPECT_EQ(model.meta->number(id, key), value) << key;
  }
  EXPECT_EQ(model.meta->number(sum, "coeffA"), std::nullopt);
  EXPECT_EQ(model.meta->number(sum, "operator"), std::nullopt);
  EXPECT_EQ(model.meta->number(99, "id"), std::nullopt);
}

// Two chains of three and one blocks that compute; wires and outports are none.
TEST_F(ChecksTest, TiersAndZones) {
  Model model;
  const uint64_t source = model.add("clock"), gain = model.add("gain"), lag = model.add("lag"),
                 after = model.add("gain");
  model.link(source, gain), model.link(gain, lag), model.link(lag, after);
  model.show(after, "y");
  model.show(model.add("const"), "z");
  EXPECT_EQ(model.check(), 0);
  EXPECT_EQ(model.meta->tiers(), 2u);
  EXPECT_EQ(model.meta->zones(), 2u);
  model.add("const");
  EXPECT_EQ(model.meta->tiers(), 0u);
  EXPECT_FALSE(model.meta->build(*model.exec));
}

// Whatever is joined at random: a known code, twice the same, and no more than that.
TEST_F(ChecksTest, RandomDiagramsGiveKnownCodes) {
  std::map<int, int> seen;
  for (unsigned seed = 0; seed < 2000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto below = [&](unsigned n) { return random() % n; };
    const char* types[] = {"gain", "const", "sum",  "subsys", "inport", "outport",
                           "goto", "from",  "cast", "delay",  "lut1d"};
    Model model;
    std::vector<uint64_t> systems{1};
    const unsigned count = 1 + below(12);
    for (unsigned i = 0; i < count; ++i) {
      const char* type = types[below(std::size(types))];
      Given given;
      if (type[0] == 'g' || type[0] == 'f') given.push_back({"target", text(below(2) ? "a" : "b")});
      if (type[0] == 'l')
        given = {{"bp1", list({0, below(8) ? 1.0 : 0.0})}, {"out", list(Numbers(below(8) ? 2 : 3))}};
      if (type[0] == 'i' && below(3) == 0) given.push_back({"portNumber", 1.0 + below(3)});
      const uint64_t id = model.add(type, given, systems[below(static_cast<unsigned>(systems.size()))]);
      if (std::string(type) == "subsys") systems.push_back(id);
    }
    for (unsigned i = 0; i < 2 * count; ++i) {
      model.link(1 + below(count + 2), 1 + below(count + 2), static_cast<int>(below(3)), 1,
                 below(9) ? "" : "n");
    }
    const int code = model.check();
    ++seen[code];
    EXPECT_THAT(code, testing::AnyOf(0, 1, 2, 3, 4, 6, 7, 9, 11));
    EXPECT_EQ(model.check(), code);
  }
  EXPECT_GE(seen.size(), 7u);
}

}  // namespace
