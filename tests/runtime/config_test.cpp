// The configuration store: values of every type, several processes, kills, and stores that cannot be used.
#include "runtime/config.h"

#include <gmock/gmock.h>

#include <cmath>
#include <csignal>
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

// A value as text with its type's number before it.
std::string shown(const var_t& v) {
  const std::string type = std::to_string(v.tag) + ":";
  switch (static_cast<tag_t>(v.tag)) {
    case tag_t::boolean:
      return type + (v.value.boolean ? "true" : "false");
    case tag_t::int32:
      return type + std::to_string(v.value.int32);
    case tag_t::int64:
      return type + std::to_string(v.value.int64);
    case tag_t::float64: {
      char text[64];
      std::snprintf(text, sizeof text, "%a", v.value.float64);
      return type + text;
    }
    case tag_t::text:
      return type + v.value.text;
    default:
      return type;
  }
}

TEST_F(ConfigTest, ValuesComeBackAsTheyWere) {
  const var_t values[] = {
      var_t::of(true),
      var_t::of(false),
      var_t::of(int32_t{-5}),
      var_t::of(std::numeric_limits<int32_t>::min()),
      var_t::of(std::numeric_limits<int64_t>::max()),
      var_t::of(std::numeric_limits<int64_t>::min()),
      var_t::of(0.1),
      var_t::of(3.0),
      var_t::of(5e-324),
      var_t::of(-std::numeric_limits<double>::infinity()),
      var_t::of(std::nan("")),
      var_t::of(""),
      var_t::of("text with 'quotes', \n and ü"),
  };
  for (const bool reopened : {false, true}) {
    for (size_t i = 0; i < std::size(values); ++i) {
      const std::string key = "key" + std::to_string(i);
      const var_t& v = values[i];
      if (!reopened) {
        // Every value replaces one of another type.
        config::set("group", key, i % 2 == 0 ? "other" : "another");
        switch (static_cast<tag_t>(v.tag)) {
          case tag_t::boolean:
            config::set("group", key, v.value.boolean);
            break;
          case tag_t::int32:
            config::set("group", key, v.value.int32);
            break;
          case tag_t::int64:
            config::set("group", key, v.value.int64);
            break;
          case tag_t::float64:
            config::set("group", key, v.value.float64);
            break;
          default:
            config::set("group", key, std::string_view(v.value.text));
        }
      }
      EXPECT_EQ(shown(config::get("group", key)), shown(v)) << (reopened ? "reopened" : "same connection");
    }
    restart();
  }
}

TEST_F(ConfigTest, GroupAndKeyIgnoreCaseAndAreApart) {
  config::set("Theme", "Color", "red");
  config::set("theme", "COLOR", "blue");
  config::set("themecolor", "", "joined");
  EXPECT_EQ(shown(config::get("THEME", "color")), "14:blue");
  EXPECT_EQ(shown(config::get("ThemeColor", "")), "14:joined");
  EXPECT_EQ(shown(config::get("", "themecolor")), "0:");
}

TEST_F(ConfigTest, ReadingMakesNoFile) {
  EXPECT_EQ(config::get("group", "key").tag, 0);
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(ConfigTest, ZeroCharacterIsRefusedAndTheOldValueStays) {
  config::set("group", "key", "old");
  EXPECT_THROW(config::set("group", "key", std::string_view("a\0b", 3)), mirn3::exc::error_t);
  EXPECT_EQ(shown(config::get("group", "key")), "14:old");
}

TEST_F(ConfigTest, ProcessesWriteAtOnce) {
  // The first processes find no file; the parent's connection is open when the later ones are forked.
  constexpr int each = 50;
  for (int round = 0; round < 2; ++round) {
    std::vector<pid_t> children;
    for (int child = 0; child < 4; ++child) {
      children.push_back(start_process([&] {
        const std::string group = "group" + std::to_string(round * 4 + child);
        for (int32_t i = 0; i < each; ++i) config::set(group, std::to_string(i), i);
        return config::get(group, "7").value.int32 == 7;
      }));
    }
    for (int32_t i = 0; i < each; ++i) config::set("parent", std::to_string(i), i);
    for (const pid_t child : children) EXPECT_EQ(wait_for(child), 0);
  }
  restart();
  for (int32_t i = 0; i < each; ++i) {
    EXPECT_EQ(shown(config::get("parent", std::to_string(i))), "7:" + std::to_string(i));
    for (int child = 0; child < 8; ++child) {
      EXPECT_EQ(shown(config::get("group" + std::to_string(child), std::to_string(i))),
                "7:" + std::to_string(i));
    }
  }
}

TEST_F(ConfigTest, KilledWriterLeavesAReadableStore) {
  int32_t last = -1;
  for (int round = 0; round < 8; ++round) {
    int acknowledged[2];
    ASSERT_EQ(::pipe(acknowledged), 0);
    const pid_t writer = start_process([&] {
      for (int32_t i = last + 1;; ++i) {
        config::set("group", "counter", i);
        if (::write(acknowledged[1], &i, sizeof i) != sizeof i) return false;
      }
    });
    ::close(acknowledged[1]);
    int32_t confirmed = -1;
    for (int i = 0; i < 20 + round * 7; ++i)
      ASSERT_EQ(::read(acknowledged[0], &confirmed, sizeof confirmed), 4);
    ::kill(writer, SIGKILL);
    EXPECT_EQ(wait_for(writer), -SIGKILL);
    while (::read(acknowledged[0], &confirmed, sizeof confirmed) == 4) {
    }
    ::close(acknowledged[0]);
    const var_t value = config::get("group", "counter");
    ASSERT_EQ(value.tag, static_cast<uint8_t>(tag_t::int32));
    // What was confirmed is there; at most the write in flight is there or not.
    EXPECT_GE(value.value.int32, confirmed);
    EXPECT_LE(value.value.int32, confirmed + 1);
    last = value.value.int32;
    config::set("group", "after", round);
  }
}

TEST_F(ConfigTest, DamagedStoreIsReportedAndKept) {
  const std::filesystem::path file = folder / "state.db";
  const std::string rubbish(8192, '?');
  std::ofstream(file) << rubbish;
  const auto read = [] { config::get("group", "key"); };
  const auto write = [] { config::set("group", "key", int32_t{1}); };
  for (const std::function<void()>& use : {std::function<void()>(read), std::function<void()>(write)}) {
    EXPECT_THAT(message_of<mirn3::exc::error_t>(use),
                AllOf(HasSubstr(file.string()), HasSubstr("damaged"), HasSubstr("move it")));
  }
  std::stringstream content;
  content << std::ifstream(file).rdbuf();
  EXPECT_EQ(content.str(), rubbish);
  std::filesystem::rename(file, folder / "moved");  // the advice helps at once
  config::set("group", "key", int32_t{1});
  EXPECT_EQ(config::get("group", "key").value.int32, 1);
}

TEST_F(ConfigTest, UnusablePlaceIsReportedUntilItIsUsable) {
  std::filesystem::create_directories(folder / "home" / "state.db");
  restart(folder / "home");
  EXPECT_THAT(message_of<mirn3::exc::error_t>([] { config::set("group", "key", true); }),
              AllOf(HasSubstr((folder / "home" / "state.db").string()), HasSubstr("KVALO_HOME")));
  std::filesystem::remove(folder / "home" / "state.db");
  config::set("group", "key", true);
  EXPECT_TRUE(config::get("group", "key").value.boolean);
}

}  // namespace
