// Mapped files, also when they are cut short, and the line count.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "runtime/sys.h"

namespace {

namespace sys = mirn3::sys;

// A file without a name's clashes, gone after the test.
class MappedFile : public ::testing::Test {
 protected:
  MappedFile() : fd(mkstemp(path.data())) {}
  ~MappedFile() override {
    close(fd);
    unlink(path.c_str());
  }

  void fill(size_t n) const {
    const std::string bytes(n, 'x');
    ASSERT_EQ(pwrite(fd, bytes.data(), n, 0), static_cast<ssize_t>(n));
  }

  std::string path = "/tmp/kvalo-map-XXXXXX";
  int fd;
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
};

uint64_t sum(std::span<const unsigned char> bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), uint64_t{0});
}

TEST_F(MappedFile, EmptyFileHasNoBytes) {
  EXPECT_TRUE(sys::Mapping(path).bytes().empty());
  EXPECT_EQ(sys::line_count(path), 0u);
}

TEST_F(MappedFile, OwnershipMoves) {
  fill(10);
  sys::Mapping a(path);
  sys::Mapping b(std::move(a));
  EXPECT_TRUE(a.bytes().empty());  // NOLINT(bugprone-use-after-move)
  a = std::move(b);
  EXPECT_EQ(a.text(), "xxxxxxxxxx");
}

TEST_F(MappedFile, PartsCutOffWhileMappedReadAsZeros) {
  constexpr size_t pages = 300;
  fill(pages * page + 5);
  // So many at once that the first block of remembered mappings is not enough.
  std::vector<sys::Mapping> mappings;
  for (int i = 0; i < 300; ++i) mappings.emplace_back(path);
  const size_t left = page + 10;
  ASSERT_EQ(ftruncate(fd, static_cast<off_t>(left)), 0);
  for (const size_t i : {0, 299}) {
    const auto bytes = mappings[i].bytes();
    ASSERT_EQ(bytes.size(), pages * page + 5);
    EXPECT_EQ(bytes[7 * page], 0);  // in any order
    EXPECT_EQ(sum(bytes), left * 'x');
    EXPECT_EQ(sum(bytes), left * 'x');
  }
  ASSERT_EQ(ftruncate(fd, 0), 0);
  EXPECT_EQ(sum(mappings[1].bytes()), 0u);
}

using MappedFileDeathTest = MappedFile;

TEST_F(MappedFileDeathTest, ForeignFaultsKeepTheirMeaning) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  fill(page);
  const auto touch_foreign_mapping = [&] {
    const sys::Mapping ours(path);
    const void* foreign = mmap(nullptr, page, PROT_READ, MAP_SHARED, fd, 0);
    if (ftruncate(fd, 0) != 0 || sum(ours.bytes()) != 0) _exit(2);
    _exit(*static_cast<const volatile unsigned char*>(foreign));
  };
  EXPECT_EXIT(
      {
        std::signal(SIGBUS, SIG_DFL);  // sanitizers have put themselves there
        touch_foreign_mapping();
      },
      ::testing::KilledBySignal(SIGBUS), "");
  EXPECT_EXIT(
      {
        fill(page);
        std::signal(SIGBUS, [](int) { _exit(42); });
        touch_foreign_mapping();
      },
      ::testing::ExitedWithCode(42), "");
}

TEST(LineCount, IsThatOfAPlainCountAtEverySizeAndBorder) {
  std::mt19937 random(20241);
  std::vector<unsigned char> bytes(size_t{13} << 20);
  for (auto& byte : bytes) byte = static_cast<unsigned char>(random() % 4 == 0 ? '\n' : random());
  for (const size_t size :
       {size_t{0}, size_t{1}, size_t{127}, size_t{128}, size_t{129}, size_t{255 * 128 - 1}, size_t{255 * 128},
        size_t{256 * 128 + 1}, size_t{100'000}, bytes.size() - 3}) {
    for (const size_t first : {0, 3}) {
      const auto part =
          std::span<const unsigned char>(bytes).subspan(std::min(first, bytes.size() - size), size);
      const auto feeds = static_cast<uint64_t>(std::count(part.begin(), part.end(), '\n'));
      EXPECT_EQ(sys::line_count(part), feeds + (!part.empty() && part.back() != '\n')) << size;
    }
  }
  // Nothing but line feeds is what would overflow a narrow counter.
  std::fill(bytes.begin(), bytes.end(), '\n');
  EXPECT_EQ(sys::line_count(bytes), bytes.size());
}

}  // namespace
