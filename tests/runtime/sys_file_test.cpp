// Files, places and the questions about paths.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "runtime/exc.h"
#include "runtime/sys.h"

namespace {

namespace fs = std::filesystem;
namespace sys = mirn3::sys;
using mirn3::exc::error_t;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

// A folder of its own for every test, and the environment as it was before.
class SysFile : public ::testing::Test {
 protected:
  SysFile() {
    std::string name = (fs::temp_directory_path() / "kvalo-sys-XXXXXX").string();
    folder = mkdtemp(name.data());
  }
  ~SysFile() override {
    fs::remove_all(folder);
    for (; !environment.empty(); environment.pop_back()) {
      const auto& [name, value] = environment.back();
      value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
  }

  fs::path make(const std::string& name, const std::string& content) const {
    std::ofstream(folder / name, std::ios::binary) << content;
    return folder / name;
  }

  std::string content(const fs::path& path) const {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  void set(const char* name, const char* value) {
    const char* old = std::getenv(name);
    environment.emplace_back(name, old != nullptr ? std::optional<std::string>(old) : std::nullopt);
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  }

  fs::path folder;
  std::vector<std::pair<const char*, std::optional<std::string>>> environment;
};

TEST_F(SysFile, LinesComeWholeWithTheirEnds) {
  const std::string wide(5000, 'w');
  sys::File file(make("a.txt", "one\r\n\n" + wide + "\n" + std::string("ze\0ro\nlast", 10)), sys::read_text);
  for (const std::string& expected :
       {std::string("one\r\n"), std::string("\n"), wide + "\n", std::string("ze"), std::string("last")}) {
    char* line = file.readline();
    ASSERT_NE(line, nullptr) << expected;
    EXPECT_EQ(line, expected);
    line[0] = 'X';  // the text is the caller's to change
  }
  EXPECT_EQ(file.readline(), nullptr);
  EXPECT_EQ(file.readline(), nullptr);
}

TEST_F(SysFile, EndlessLineIsRefused) {
  const fs::path path = make("zeros", "");
  fs::resize_file(path, sys::File::longest_line + 1);
  sys::File file(path, sys::read_text);
  EXPECT_THAT([&] { file.readline(); }, ThrowsMessage<error_t>(HasSubstr("longer than")));
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

TEST_F(SysFile, WrittenBytesArriveAndReplaceOldOnes) {
  const fs::path path = make("out.csv", "something longer than what follows");
  sys::File file(path, sys::write_text);
  file.write("a;b\n");
  file.write(std::string_view("\0\n", 2));
  file.close();
  file.close();
  EXPECT_EQ(content(path), std::string("a;b\n\0\n", 6));
  EXPECT_THROW(file.write("late"), error_t);
}

TEST_F(SysFile, FullDiskIsReported) {
  if (!sys::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  sys::File file("/dev/full", sys::write_text);
  const auto fill = [&] {
    file.write("x");
    file.close();
  };
  EXPECT_THAT(fill, ThrowsMessage<error_t>(HasSubstr("Cannot write '/dev/full': No space left")));
}

TEST_F(SysFile, WhatIsNoReadableFileIsRefusedWithoutWaiting) {
  const fs::path pipe = folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const fs::path missing = folder / "missing";
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
    const std::string opening = "Cannot open '" + c.path.string() + "': ";
    EXPECT_THAT([&] { sys::File(c.path, c.mode); },
                ThrowsMessage<error_t>(::testing::AllOf(HasSubstr(opening), HasSubstr(c.reason))));
    if (c.mode == sys::read_text) {
      EXPECT_THAT([&] { sys::Mapping{c.path}; }, ThrowsMessage<error_t>(HasSubstr(opening)));
    }
  }
}

TEST_F(SysFile, StampChangesWithTheFile) {
  const fs::path path = make("s", "1");
  const sys::FileStamp before = sys::file_stamp(path);
  EXPECT_EQ(before, sys::file_stamp(path));
  EXPECT_EQ(before.size, 1u);
  fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(1));
  EXPECT_EQ(sys::file_stamp(path).modified_ns, before.modified_ns + 1'000'000'000);
  make("other", "2");
  fs::rename(folder / "other", path);
  EXPECT_NE(sys::file_stamp(path).inode, before.inode);
  EXPECT_THROW(sys::file_stamp(folder / "none"), error_t);
}

TEST_F(SysFile, ExtensionsIgnoreCase) {
  EXPECT_TRUE(sys::ext_check("/a/Flight.CSV", ".csv"));
  EXPECT_TRUE(sys::ext_check("/a/x.Tar.Gz", ".tar.gz"));
  EXPECT_FALSE(sys::ext_check("/a/x.gz", ".tar.gz"));
  EXPECT_FALSE(sys::ext_check("/a.csv/x", ".csv"));
  EXPECT_FALSE(sys::ext_check("v", ".csv"));
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

TEST_F(SysFile, PlacesFollowTheEnvironment) {
  for (const char* name : {"KVALO_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
    set(name, nullptr);
  set("HOME", "/h");
  EXPECT_EQ(sys::config_path(), "/h/.config/kvalo");
  EXPECT_EQ(sys::plugin_path(), "/h/.config/kvalo/plugins");
  EXPECT_EQ(sys::cache_path(), "/h/.cache/kvalo");
  EXPECT_EQ(sys::state_path(), "/h/.local/state/kvalo");
  set("XDG_CONFIG_HOME", "/c");
  set("XDG_CACHE_HOME", "not/absolute");
  set("XDG_STATE_HOME", "");
  EXPECT_EQ(sys::plugin_path(), "/c/kvalo/plugins");
  EXPECT_EQ(sys::cache_path(), "/h/.cache/kvalo");
  EXPECT_EQ(sys::state_path(), "/h/.local/state/kvalo");
  set("HOME", nullptr);  // the account's home folder stands in
  EXPECT_TRUE(sys::state_path().is_absolute());
  set("KVALO_HOME", "/k");
  EXPECT_EQ(sys::config_path(), "/k");
  EXPECT_EQ(sys::state_path(), "/k");
  EXPECT_EQ(sys::cache_path(), "/k/cache");
  EXPECT_EQ(sys::plugin_path(), "/k/plugins");
}

}  // namespace
