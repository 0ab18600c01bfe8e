// The configuration store: values of every type, several processes, kills, and stores that cannot be used.
#include "runtime/config.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "runtime/exc.h"
#include "runtime/home.h"

namespace config = mirn3::config;
using mirn3::tag_t;
using mirn3::var_t;
using testing::AllOf;
using testing::HasSubstr;

namespace {

using ConfigTest = Home;
using mirn3::exc::error_t;

// A value as text with its type's number before it.
std::string shown(const var_t& v) {
  const auto tag = static_cast<tag_t>(v.tag);
  const std::string type = std::to_string(v.tag) + ":";
  if (tag == tag_t::text) return type + v.value.text;
  if (tag == tag_t::boolean) return type + (v.value.boolean ? "true" : "false");
  if (tag == tag_t::int32) return type + std::to_string(v.value.int32);
  if (tag == tag_t::int64) return type + std::to_string(v.value.int64);
  char hexadecimal[64] = "";
  if (tag == tag_t::float64) std::snprintf(hexadecimal, sizeof hexadecimal, "%a", v.value.float64);
  return type + hexadecimal;
}

std::string stored(std::string_view group, std::string_view key) { return shown(config::get(group, key)); }

TEST_F(ConfigTest, ValuesComeBackAsTheyWere) {
  for (const bool reopened : {false, true}) {
    int i = 0;
    const auto check = [&](const auto& value) {
      const std::string key = "key" + std::to_string(++i);
      if (!reopened) {
        config::set("group", key, 7.0);  // every value replaces one of another type
        config::set("group", key, true);
        config::set("group", key, value);
      }
      EXPECT_EQ(stored("group", key), shown(var_t::of(value))) << (reopened ? "reopened" : "same connection");
    };
    const auto check_all = [&](const auto&... values) { (check(values), ...); };
    check_all(true, false, int32_t{-5}, std::numeric_limits<int32_t>::min(),
              std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min(), 0.1, 3.0, 5e-324,
              -HUGE_VAL, std::nan(""), "", "text with 'quotes', \n and ü");
    restart();
  }
}

TEST_F(ConfigTest, GroupAndKeyIgnoreCaseAndAreApart) {
  EXPECT_EQ(stored("group", "key"), "0:");
  EXPECT_TRUE(std::filesystem::is_empty(folder)) << "reading made a file";
  config::set("Theme", "Color", "red");
  config::set("theme", "COLOR", "blue");
  config::set("themecolor", "", "joined");
  EXPECT_THROW(config::set("theme", "color", std::string_view("a\0b", 3)), error_t);  // the old value stays
  EXPECT_EQ(stored("THEME", "color"), "14:blue");
  EXPECT_EQ(stored("ThemeColor", ""), "14:joined");
  EXPECT_EQ(stored("", "themecolor"), "0:");
}

TEST_F(ConfigTest, ProcessesThatWriteAtOnceLoseNothing) {
  // The first processes find no file; the parent's connection is open when the later ones are forked.
  constexpr int32_t each = 50;
  const auto write_all = [](const std::string& group) {
    for (int32_t i = 0; i < each; ++i) config::set(group, std::to_string(i), i);
    return stored(group, "7") == "7:7";
  };
  const auto write_as_parent = [&] { EXPECT_TRUE(write_all("0")); };
  for (const size_t first : {1, 5}) {
    run_processes(
        4, [&](size_t i) { return write_all(std::to_string(first + i)); }, write_as_parent);
  }
  restart();
  for (int group = 0; group < 9; ++group) {
    for (int32_t i = 0; i < each; ++i) {
      EXPECT_EQ(stored(std::to_string(group), std::to_string(i)), "7:" + std::to_string(i)) << group;
    }
  }
}

TEST_F(ConfigTest, KilledWriterLeavesWhatWasConfirmed) {
  int32_t next = 0;
  for (int round = 0; round < 8; ++round) {
    const int32_t confirmed =
        kill_in_step(next, 20 + round * 7, [](int32_t i) { config::set("g", "counter", i); });
    const var_t value = config::get("g", "counter");
    ASSERT_EQ(value.tag, static_cast<uint8_t>(tag_t::int32));
    EXPECT_GE(value.value.int32, confirmed);
    EXPECT_LE(value.value.int32, confirmed + 1);
    next = value.value.int32 + 1;
    config::set("g", "after", round);
  }
}

TEST_F(ConfigTest, UnusableStoreIsReportedKeptAndUsableOnceMoved) {
  const std::filesystem::path file = folder / "state.db";
  const std::string rubbish(8192, '?');
  make("state.db", rubbish);
  const auto read = [] { config::get("group", "key"); };
  const auto write = [] { config::set("group", "key", int32_t{1}); };
  const auto damaged = AllOf(HasSubstr(file.string()), HasSubstr("damaged"), HasSubstr("move it"));
  EXPECT_THAT(message_of<error_t>(read), damaged);
  EXPECT_THAT(message_of<error_t>(write), damaged);
  EXPECT_EQ(content(file), rubbish);
  std::filesystem::rename(file, folder / "moved");
  write();
  EXPECT_EQ(stored("group", "key"), "7:1");

  restart(folder / "home");
  std::filesystem::create_directories(folder / "home" / "state.db");  // a folder where the file should be
  EXPECT_THAT(message_of<error_t>(write),
              AllOf(HasSubstr((folder / "home" / "state.db").string()), HasSubstr("KVALO_HOME")));
  std::filesystem::remove(folder / "home" / "state.db");
  write();
  EXPECT_EQ(stored("group", "key"), "7:1");
}

}  // namespace
