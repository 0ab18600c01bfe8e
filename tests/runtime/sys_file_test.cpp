// Files, places and the questions about paths.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "runtime/exc.h"
#include "runtime/home.h"
#include "runtime/sys.h"

namespace {

namespace fs = std::filesystem;
namespace sys = mirn3::sys;
using mirn3::exc::error_t;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

using SysFile = Home;

TEST_F(SysFile, LinesComeWholeWithTheirEnds) {
  const std::string wide(5000, 'w');
  sys::File file(make("a.txt", "one\r\n\n" + wide + "\n" + std::string("ze\0ro\nlast", 10)), sys::read_text);
  for (const std::string& expected :
       {std::string("one\r\n"), std::string("\n"), wide + "\n", std::string("ze"), std::string("last")}) {
    char* line = file.readline();
    ASSERT_STREQ(line, expected.c_str());
    line[0] = 'X';  // the text is the caller's to change
  }
  for (int repeat = 0; repeat < 2; ++repeat) EXPECT_EQ(file.readline(), nullptr);

  fs::resize_file(make("zeros", ""), sys::File::longest_line + 1);
  sys::File endless(folder / "zeros", sys::read_text);
  EXPECT_THAT([&] { endless.readline(); }, ThrowsMessage<error_t>(HasSubstr("longer than")));
}

TEST_F(SysFile, SeekMovesFromWhereReadingStopped) {
  sys::File file(make("b.bin", "0123456789"), sys::read_binary);
  char two[2];
  ASSERT_EQ(fread(two, 1, 2, file.stream()), 2u);
  file.seek(5);
  EXPECT_EQ(fgetc(file.stream()), '7');
  file.seek(100);
  EXPECT_EQ(fgetc(file.stream()), EOF);
  EXPECT_THROW(file.seek(-1000), error_t);
}

TEST_F(SysFile, WrittenBytesArriveOrTheReasonIsSaid) {
  const fs::path path = make("out.csv", "something longer than what follows");
  sys::File file(path, sys::write_text);
  file.write(std::string_view("a;b\n\0\n", 6));
  file.close();
  file.close();
  EXPECT_EQ(content(path), std::string("a;b\n\0\n", 6));
  EXPECT_THROW(file.write("late"), error_t);
  if (!sys::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  sys::File full("/dev/full", sys::write_text);
  full.write("x");
  EXPECT_THAT([&] { full.close(); },
              ThrowsMessage<error_t>(HasSubstr("Cannot write '/dev/full': No space left")));
}

TEST_F(SysFile, WhatIsNoReadableFileIsRefusedWithoutWaiting) {
  const fs::path pipe = folder / "pipe", missing = folder / "missing";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const struct {
    fs::path path;
    int mode;
    const char* reason;
  } cases[] = {{folder, sys::read_text, "Is a directory"},
               {folder, sys::write_text, "Is a directory"},
               {pipe, sys::read_text, "Not a regular file"},
               {pipe, sys::read_binary, "Not a regular file"},
               {pipe, sys::write_text, "No such device or address"},
               {"/dev/zero", sys::read_binary, "Not a regular file"},
               {missing, sys::read_text, "No such file or directory"},
               {missing / "x", sys::write_text, "No such file or directory"},
               {make("plain", ""), 7, "not a mode"}};
  for (const auto& c : cases) {
    const auto says_why = AllOf(HasSubstr("Cannot open '" + c.path.string() + "': "), HasSubstr(c.reason));
    EXPECT_THAT([&] { sys::File(c.path, c.mode); }, ThrowsMessage<error_t>(says_why));
    if (c.mode != sys::read_text) continue;
    EXPECT_THAT([&] { sys::Mapping{c.path}; }, ThrowsMessage<error_t>(says_why));
  }
}

TEST_F(SysFile, StampChangesWithTheFile) {
  const fs::path path = make("s", "1");
  const sys::FileStamp first = sys::file_stamp(path);
  EXPECT_EQ(first, sys::file_stamp(path));
  EXPECT_EQ(first.size, 1u);
  fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(1));
  EXPECT_EQ(sys::file_stamp(path).modified_ns, first.modified_ns + 1'000'000'000);
  fs::rename(make("other", "2"), path);
  EXPECT_NE(sys::file_stamp(path).inode, first.inode);
  EXPECT_THROW(sys::file_stamp(folder / "none"), error_t);
}

TEST_F(SysFile, ExtensionsIgnoreCase) {
  for (const auto& [path, extension, has] : {std::tuple{"/a/x.Tar.Gz", ".tar.gz", true},
                                             {"/a/x.gz", ".tar.gz", false},
                                             {"/a.csv/x", ".csv", false},
                                             {"v", ".csv", false}}) {
    EXPECT_EQ(sys::ext_check(path, extension), has) << path;
  }
}

TEST_F(SysFile, WriteCheckLeavesEverythingAsItWas) {
  const fs::path present = make("present", "kept");
  sys::write_check(present);
  EXPECT_EQ(content(present), "kept");
  fs::create_symlink("target", folder / "link");
  for (const char* name : {"absent", "link"}) {
    sys::write_check(folder / name);
    EXPECT_FALSE(sys::exists(folder / name)) << name;
  }
  EXPECT_FALSE(sys::exists(folder / "target"));
  fs::create_symlink("circle", folder / "circle");
  for (const fs::path& path : {folder, folder / "none" / "x", folder / std::string(300, 'n'),
                               folder / "circle", present / "x", fs::path()}) {
    EXPECT_THAT([&] { sys::write_check(path); }, ThrowsMessage<error_t>(HasSubstr("Cannot write"))) << path;
  }
}

// In a process of its own, whose environment nobody else needs.
TEST_F(SysFile, PlacesFollowTheEnvironment) {
  const auto places = [](const char* name, const char* value) {
    setenv(name, value, 1);
    return sys::config_path().string() + " " + sys::plugin_path().string() + " " +
           sys::cache_path().string() + " " + sys::state_path().string();
  };
  EXPECT_EQ(
      wait_for(start_process([&] {
        for (const char* name : {"HOME", "KVALO_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
          unsetenv(name);
        EXPECT_TRUE(sys::state_path().is_absolute()) << "the account's home folder stands in";
        const std::string config = "/h/.config/kvalo /h/.config/kvalo/plugins ";
        EXPECT_EQ(places("HOME", "/h"), config + "/h/.cache/kvalo /h/.local/state/kvalo");
        EXPECT_EQ(places("XDG_STATE_HOME", "/s"), config + "/h/.cache/kvalo /s/kvalo");
        EXPECT_EQ(places("XDG_STATE_HOME", ""), config + "/h/.cache/kvalo /h/.local/state/kvalo");
        EXPECT_EQ(places("XDG_CACHE_HOME", "not/absolute"), config + "/h/.cache/kvalo /h/.local/state/kvalo");
        EXPECT_EQ(places("XDG_CONFIG_HOME", "/c"),
                  "/c/kvalo /c/kvalo/plugins /h/.cache/kvalo /h/.local/state/kvalo");
        EXPECT_EQ(places("KVALO_HOME", "/k"), "/k /k/plugins /k/cache /k");
        return !HasFailure();
      })),
      0);
}

}  // namespace
