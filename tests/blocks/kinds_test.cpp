// What each kind computes: a few samples by hand, and classic systems against their closed forms.
#include <gmock/gmock.h>

#include "blocks/kind.h"
#include "blocks/model.h"

namespace {

using namespace blocks_test;

// One block, its inputs sample by sample at t = 0, 1, 2 ..., and what comes out of it.
struct Case {
  const char* type;
  Given given;
  std::vector<Numbers> inputs;
  Numbers output;
};

const double e1 = std::exp(-1.0);

const Case cases[] = {
    {"const", {{"expression", 2.5}}, {}, {2.5, 2.5}},
    {"const", {{"expression", 2.5}, {"obj", 4.0}}, {}, {4, 4}},
    {"const", {{"obj", text("-float('inf')")}}, {}, {}},  // infinite where the default is finite
    {"step", {{"stepTime", 1.5}}, {}, {0, 0, 1, 1}},
    {"step", {{"stepTime", 2.0}, {"initialValue", 5.0}, {"finalValue", -1.0}}, {}, {5, 5, -1, -1}},
    {"step", {{"stepTime", 2.0 + 1e-9}}, {}, {0, 0, 1}},
    {"ramp", {{"stepTime", 1.0}, {"coeffA", 2.0}, {"initialValue", 3.0}}, {}, {3, 3, 5, 7}},
    {"sine", {{"frequency", 0.25}, {"phase", 90.0}, {"coeffA", 2.0}, {"coeffB", 1.0}}, {}, {3, 1, -1}},
    {"sweep", {{"initialValue", 0.25}, {"finalValue", 0.25}}, {}, {0, 1, 0}},
    {"pulse", {{"timeOn", 2.0}, {"timeOff", 1.0}, {"stepTime", 1.0}}, {}, {0, 1, 1, 0, 1, 1, 0}},
    {"random", {{"min", 0.0}, {"max", 4294967296.0}}, {}, {270369, 67634689, 2647435461}},
    {"random", {{"seed", 0.0}, {"max", 4294967296.0}}, {}, {723471715, 2497366906, 2064144800}},
    {"clock", {}, {}, {0, 1, 2}},
    {"series", {{"obj", series({0.5, 2, 2, 3}, {1, 5, 7, 9})}, {"initialValue", -1.0}}, {}, {-1, 1, 7, 9, 9}},
    {"series", {{"obj", series({0.5, 2.5}, {1, 5})}, {"type", text("linear")}}, {}, {0, 2, 4, 5, 5}},
    {"gain", {{"expression", -2.0}}, {{1, -3, inf}}, {-2, 6, -inf}},
    {"linear", {{"coeffA", 2.0}, {"coeffB", 1.0}}, {{1, 2, 3}}, {3, 5, 7}},
    {"sum", {}, {{1, 2}, {10, 20}}, {11, 22}},
    {"sum", {{"operator", text("-+-")}}, {{1, 2}, {10, 20}, {100, 200}}, {-91, -182}},
    {"sum", {{"operator", text("+-")}}, {{1, 2}, {10, 20}}, {-9, -18}},
    {"product", {}, {{2, 3}, {4, 5}}, {8, 15}},
    {"product", {{"operator", text("/*/")}}, {{2, 0}, {8, 1}, {4, 1}}, {1, inf}},
    {"math", {{"operator", text("abs")}}, {{-1, 2}}, {1, 2}},
    {"math", {{"operator", text("neg")}}, {{-1, 2}}, {1, -2}},
    {"math", {{"operator", text("sign")}}, {{-3, 0, 5, NaN}}, {-1, 0, 1, 0}},
    {"math", {{"operator", text("square")}}, {{-3, 0.5}}, {9, 0.25}},
    {"math", {{"operator", text("sqrt")}}, {{9, -1}}, {3, NaN}},
    {"math", {{"operator", text("exp")}}, {{0, 1000}}, {1, inf}},
    {"math", {{"operator", text("log")}}, {{1, 0, -1}}, {0, -inf, NaN}},
    {"math", {{"operator", text("log10")}}, {{1000, 0}}, {3, -inf}},
    {"math", {{"operator", text("round")}}, {{0.5, -0.5, 2.5, 0.49999999999999994}}, {1, -1, 3, 0}},
    {"math", {{"operator", text("floor")}}, {{-0.5, 1.5}}, {-1, 1}},
    {"math", {{"operator", text("ceil")}}, {{0.5, 1.5}}, {1, 2}},
    {"math", {{"operator", text("trunc")}}, {{-1.5, 1.5}}, {-1, 1}},
    {"math2", {{"operator", text("atan2")}}, {{0, 1}, {1, 0}}, {0, std::atan2(1.0, 0.0)}},
    {"math2", {{"operator", text("pow")}}, {{2, -8}, {10, 1.0 / 3}}, {1024, NaN}},
    {"math2", {{"operator", text("mod")}}, {{-1, 7, 1}, {3, -4, 0}}, {2, -1, NaN}},
    {"math2", {{"operator", text("hypot")}}, {{3, 5}, {4, 12}}, {5, 13}},
    {"minmax", {}, {{1, 5, NaN}, {3, 2, 1}}, {3, 5, NaN}},
    {"minmax", {{"operator", text("min")}, {"inportCount", 3.0}}, {{1, 5}, {3, NaN}, {-2, 7}}, {-2, 5}},
    {"relational", {{"operator", text("<=")}}, {{1, 2, 3, NaN}, {2, 2, 2, 2}}, {1, 1, 0, 0}},
    {"relational", {{"operator", text("!=")}}, {{1, NaN}, {1, NaN}}, {0, 1}},
    {"compare", {{"operator", text(">")}, {"expression", 1.5}}, {{1, 2, NaN}}, {0, 1, 0}},
    {"compare", {}, {{0, -0.0, 1}}, {1, 1, 0}},
    {"inrange", {{"min", 1.0}, {"max", 2.0}}, {{0.9, 1, 2, 2.1, NaN}}, {0, 1, 1, 0, 1}},
    {"logic", {}, {{0, 1, NaN}, {1, 1, 2}}, {0, 1, 1}},
    {"logic",
     {{"operator", text("xor")}, {"inportCount", 3.0}},
     {{1, 1, 0}, {1, 1, 0}, {0, 1, 0}},
     {0, 1, 0}},
    {"logic", {{"operator", text("nand")}}, {{0, 1}, {1, 1}}, {1, 0}},
    {"logic", {{"operator", text("nor")}}, {{0, 1}, {0, 0}}, {1, 0}},
    {"logic", {{"operator", text("or")}}, {{0, 1}, {0, 0}}, {0, 1}},
    {"logic", {{"operator", text("not")}}, {{0, 3}}, {1, 0}},
    {"switch", {{"coeffA", 2.0}}, {{1, 1, 1}, {1, 2, NaN}, {9, 9, 9}}, {9, 1, 9}},
    {"select", {}, {{0, 1.9, 2, 99, NaN}, {10, 10, 10, 10, 10}, {20, 20, 20, 20, 20}}, {10, 10, 20, 20, 10}},
    {"cast", {{"type", text("int8")}}, {{-200, -1.9, 127.9, NaN}}, {-128, -1, 127, 0}},
    {"cast", {{"type", text("uint32")}}, {{-1, 5e9, inf}}, {0, 4294967295, 4294967295}},
    {"cast", {{"type", text("single")}}, {{0.1, 1e300}}, {0.1f, inf}},
    {"cast", {{"type", text("bool")}}, {{0, NaN, -2}}, {0, 1, 1}},
    {"cast", {}, {{0.1, NaN}}, {0.1, NaN}},
    {"bitwise", {}, {{12, 5e9}, {10, 255}}, {8, 255}},
    {"bitwise", {{"operator", text("shl")}}, {{3, 1, 0xffffffff}, {2, 32, 4}}, {12, 0, 4294967280}},
    {"bitwise", {{"operator", text("not")}}, {{0, 4294967295}}, {4294967295, 0}},
    {"unpack", {{"msb", 7.0}, {"lsb", 4.0}, {"coeffA", 0.5}, {"coeffB", 1.0}}, {{0xa5, -1}}, {6, 8.5}},
    {"unpack", {{"msb", 7.0}, {"type", text("SGN")}}, {{0x85, 5}}, {-5, 5}},
    {"unpack", {{"msb", 7.0}, {"type", text("2c")}}, {{0xff, 0x7f}}, {-1, 127}},
    {"unpack", {{"msb", 15.0}, {"lsb", 4.0}, {"type", text("bcd")}}, {{0x1234, 0xff0}}, {123, 165}},
    {"bits", {{"outportCount", 1.0}, {"lsb", 2.0}}, {{4, 3, NaN, 1e300}}, {1, 0, 0, 1}},
    {"edge", {}, {{1, 0, 2, 3, NaN, 0}}, {1, 0, 1, 0, 0, 0}},
    {"edge", {{"operator", text("falling")}, {"initialValue", 1.0}}, {{0, 1, 0}}, {1, 0, 1}},
    {"edge", {{"operator", text("either")}}, {{0, 1, 0, 0}}, {0, 1, 1, 0}},
    {"latch", {}, {{0, 1, 0, 1, 0}, {0, 0, 0, 1, 0}}, {0, 1, 1, 0, 0}},
    {"counter", {{"max", 2.0}, {"min", 1.0}}, {{1, 0, 1, 0, 1, 1}, {0, 0, 0, 0, 0, 0}}, {1, 1, 2, 2, 1, 1}},
    {"counter", {{"initialValue", 5.0}}, {{0, 1, 1, 0, 1}, {0, 0, 1, 0, 0}}, {5, 6, 5, 5, 6}},
    {"debounce", {{"timeOn", 2.0}, {"timeOff", 1.0}}, {{1, 1, 1, 0, 0, 1, 1, 1}}, {0, 0, 1, 1, 0, 0, 0, 1}},
    {"relay", {{"min", 1.0}, {"max", 2.0}, {"valueOn", 7.0}}, {{0, 2, 2.1, 1, 0.9}}, {0, 0, 7, 7, 0}},
    {"hold", {{"initialValue", 9.0}}, {{1, 2, 3}, {0, 1, 0}}, {9, 2, 2}},
    {"hold", {{"stepTime", 2.0}}, {{1, 2, 3, 4}}, {1, 1, 3, 3}},
    {"delay", {}, {{1, 2, 3}}, {0, 1, 2}},
    {"delay", {{"timeOn", 3.0}, {"initialValue", 9.0}}, {{1, 2, 3, 4, 5}}, {9, 9, 9, 1, 2}},
    {"saturation", {{"min", -1.0}, {"max", 2.0}}, {{-5, 0, 5, NaN}}, {-1, 0, 2, NaN}},
    {"deadzone", {{"min", -1.0}, {"max", 2.0}}, {{-5, 0, 5}}, {-4, 0, 3}},
    {"ratelimit", {{"rise", 1.0}, {"fall", 2.0}}, {{5, 5, -5, -5}}, {1, 2, 0, -2}},
    {"quantizer", {{"coeffA", 0.5}}, {{0.25, -0.25, 0.74}}, {0.5, -0.5, 0.5}},
    {"lut1d",
     {{"bp1", list({0, 1, 3})}, {"out", list({0, 10, 20})}},
     {{-1, 0.5, 2, 9, NaN}},
     {0, 5, 15, 20, NaN}},
    {"lut1d",
     {{"bp1", list({0, 1})}, {"out", list({0, 10})}, {"type", text("extend")}},
     {{-1, 2}},
     {-10, 20}},
    {"lut1d", {{"bp1", list({7})}, {"out", list({3})}}, {{-1, 99, NaN}}, {3, 3, NaN}},
    {"lut2d",
     {{"bp1", list({0, 1})}, {"bp2", list({0, 10})}, {"out", rows({{0, 10}, {100, 110}})}},
     {{0, 0.5, 1, 5, -5}, {5, 5, 20, 0, 10}},
     {5, 55, 110, 100, 10}},
    {"integrator", {}, {{1, 2, 3}}, {0, 1, 3}},
    {"integrator", {{"type", text("backward")}, {"max", 4.0}}, {{1, 2, 3, -1}}, {1, 3, 4, 3}},
    {"integrator", {{"type", text("trapezoidal")}, {"initialValue", 1.0}}, {{1, 2, 3}}, {1, 2.5, 5}},
    {"derivative", {{"coeffA", 2.0}, {"initialValue", 7.0}}, {{1, 2, 4}}, {7, 2, 4}},
    {"lag", {{"coeffB", 2.0}}, {{1, 1, 1}}, {0, 2 * (1 - e1), e1*(2 * (1 - e1)) + 2 * (1 - e1)}},
    {"lowpass", {}, {{4, 8, 8}}, {4, 6, 7}},
    {"highpass", {}, {{4, 8, 8}}, {4, 4, 2}},
    {"discrete", {{"coeffA", 0.5}, {"coeffB", 2.0}, {"initialValue", 4.0}}, {{1, 1}}, {4, 4}},
    {"pid", {{"expression", 2.0}, {"coeffA", 1.0}, {"coeffB", 1.0}}, {{1, 2, 2}}, {2, 6, 7}},
    {"pid", {{"coeffA", 1.0}, {"max", 1.5}}, {{1, 1, 1, -1}}, {1, 1.5, 1.5, 0}},
};

TEST(KindsTest, SamplesByHand) {
  for (const Case& one : cases) {
    SCOPED_TRACE(one.type);
    Model model;
    const size_t n = std::max<size_t>(one.output.size(), 2);
    model.meta->set_time(0.0, static_cast<double>(n - 1), 1.0);
    const uint64_t block = model.add(one.type, one.given);
    for (size_t i = 0; i < one.inputs.size(); ++i) {
      Numbers stamps;
      for (size_t k = 0; k < one.inputs[i].size(); ++k) stamps.push_back(static_cast<double>(k));
      model.link(model.add("series", {{"obj", series(stamps, one.inputs[i])}}), block,
                 static_cast<int>(i + 1));
    }
    model.show(block, "y");
    if (one.output.empty()) {
      EXPECT_EQ(model.check(), plexo::bad_value);
      continue;
    }
    ASSERT_EQ(model.run(), 0);
    const Numbers y = model.shown("y");
    ASSERT_EQ(y.size(), n);
    for (size_t k = 0; k < n; ++k) {
      if (std::isnan(one.output[k])) {
        EXPECT_TRUE(std::isnan(y[k])) << "sample " << k << " is " << y[k];
      } else if (y[k] != one.output[k]) {
        EXPECT_NEAR(y[k], one.output[k], 1e-15 * (1 + std::abs(one.output[k]))) << "sample " << k;
      }
    }
  }
}

TEST(KindsTest, EveryKindIsThere) {
  EXPECT_EQ(plexo::all_kinds().size(), 53u);
  EXPECT_EQ(plexo::factory::create("Gain"), nullptr);
}

// An assert fails the run at its sample; a stop ends it well, with that sample.
TEST(KindsTest, AssertAndStop) {
  Model model;
  model.meta->set_time(0, 10, 1);
  const uint64_t clock = model.add("clock"),
                 late = model.add("compare", {{"operator", text(">=")}, {"expression", 4.0}});
  model.link(clock, late);
  model.link(late, model.add("stop"));
  model.show(clock, "t");
  ASSERT_EQ(model.run(), 0);
  EXPECT_EQ(model.shown("t"), (Numbers{0, 1, 2, 3, 4}));
  model.link(late, model.add("assert"));
  EXPECT_EQ(model.run(), 1);
  EXPECT_EQ(model.exec->samples(), 0u);
}

// y(t) of a lag is 1 - exp(-t / tau), whatever the period; a double integrator of it oscillates as sin does.
TEST(KindsTest, ClosedForms) {
  Model model;
  model.meta->set_time(0, 20, 0.001);
  const uint64_t one = model.add("const", {{"expression", 1.0}}), lag = model.add("lag", {{"coeffA", 2.0}});
  model.link(one, lag);
  model.show(lag, "lag");
  // x'' = -x from x = 1, x' = 0, by the symplectic pair of a backward and a forward integrator.
  const uint64_t speed = model.add("integrator", {{"type", text("backward")}, {"coeffA", -1.0}});
  const uint64_t position = model.add("integrator", {{"initialValue", 1.0}});
  model.link(position, speed);
  model.link(speed, position);
  model.show(position, "x");
  ASSERT_EQ(model.run(), 0);
  const Numbers y = model.shown("lag"), x = model.shown("x");
  ASSERT_EQ(y.size(), 20001u);
  for (size_t k = 0; k < y.size(); k += 500) {
    const double t = model.exec->time(k);
    EXPECT_NEAR(y[k], 1 - std::exp(-t / 2), 1e-12);
    EXPECT_NEAR(x[k], std::cos(t), 1e-3);
  }
}

// A saturated PI loop comes down from its limit at once when the error turns round.
TEST(KindsTest, AntiWindup) {
  Model model;
  model.meta->set_time(0, 40, 0.01);
  const uint64_t target = model.add("pulse", {{"timeOn", 20.0}, {"timeOff", 20.0}, {"valueOn", 5.0}});
  const uint64_t error = model.add("sum", {{"operator", text("+-")}});
  const uint64_t pid = model.add("pid", {{"expression", 2.0}, {"coeffA", 1.0}, {"min", -1.0}, {"max", 1.0}});
  const uint64_t plant = model.add("lag", {{"coeffA", 1.0}, {"coeffB", 2.0}});
  model.link(target, error);
  model.link(plant, error, 2);
  model.link(error, pid);
  model.link(pid, plant);
  model.show(pid, "u");
  model.show(plant, "y");
  ASSERT_EQ(model.run(), 0);
  const Numbers u = model.shown("u"), y = model.shown("y");
  EXPECT_EQ(u[1999], 1.0);  // cannot reach 5, and stays at the limit
  EXPECT_NEAR(y[1999], 2.0, 1e-6);
  EXPECT_EQ(u[2001], -1.0);
  EXPECT_NEAR(y.back(), 0.0, 1e-2);
}

}  // namespace
