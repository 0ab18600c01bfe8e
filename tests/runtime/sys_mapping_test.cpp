// Mapped files, also when they are cut short, and the line count.
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "runtime/home.h"
#include "runtime/sys.h"

namespace {

namespace sys = mirn3::sys;
using std::filesystem::resize_file;

using MappedFile = Home;
using MappedFileDeathTest = Home;

const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));

uint64_t sum(std::span<const unsigned char> bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), uint64_t{0});
}

TEST_F(MappedFile, OwnershipMovesAndAnEmptyFileHasNoBytes) {
  sys::Mapping a(make("ten", "xxxxxxxxxx"));
  sys::Mapping b(std::move(a));
  EXPECT_TRUE(a.bytes().empty());  // NOLINT(bugprone-use-after-move)
  a = std::move(b);
  EXPECT_EQ(a.text(), "xxxxxxxxxx");
  EXPECT_TRUE(sys::Mapping(make("empty", "")).bytes().empty());
  EXPECT_EQ(sys::line_count(folder / "empty"), 0u);
}

TEST_F(MappedFile, PartsCutOffWhileMappedReadAsZeros) {
  constexpr size_t pages = 300;
  const auto path = make("cut", std::string(pages * page + 5, 'x'));
  // So many at once that the first block of remembered mappings is not enough.
  std::vector<sys::Mapping> mappings;
  for (int i = 0; i < 300; ++i) mappings.emplace_back(path);
  const size_t left = page + 10;
  resize_file(path, left);
  for (const size_t i : {0, 299}) {
    const auto bytes = mappings[i].bytes();
    ASSERT_EQ(bytes.size(), pages * page + 5);
    EXPECT_EQ(bytes[7 * page], 0);  // in any order
    EXPECT_EQ(sum(bytes), left * 'x');
    EXPECT_EQ(sum(bytes), left * 'x');
  }
  resize_file(path, 0);
  EXPECT_EQ(sum(mappings[1].bytes()), 0u);
}

TEST_F(MappedFileDeathTest, ForeignFaultsKeepTheirMeaning) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto touch_foreign_mapping = [&](void (*handler)(int)) {
    std::signal(SIGBUS, handler);  // instead of a sanitizer's
    const auto path = make("foreign", std::string(page, 'x'));
    const sys::Mapping ours(path);
    const int fd = open(path.c_str(), O_RDWR);
    const void* foreign = mmap(nullptr, page, PROT_READ, MAP_SHARED, fd, 0);
    std::filesystem::remove_all(folder);  // of the process that ends here
    if (ftruncate(fd, 0) != 0 || sum(ours.bytes()) != 0) _exit(2);
    _exit(*static_cast<const volatile unsigned char*>(foreign));
  };
  EXPECT_EXIT(touch_foreign_mapping(SIG_DFL), testing::KilledBySignal(SIGBUS), "");
  EXPECT_EXIT(touch_foreign_mapping([](int) { _exit(42); }), testing::ExitedWithCode(42), "");
}

TEST(LineCount, IsThatOfAPlainCountAtEverySizeAndBorder) {
  std::mt19937 random(20241);
  std::vector<unsigned char> bytes(size_t{13} << 20);
  for (auto& byte : bytes) byte = static_cast<unsigned char>(random() % 4 == 0 ? '\n' : random());
  for (const size_t size :
       {size_t{0}, size_t{1}, size_t{127}, size_t{128}, size_t{129}, size_t{255 * 128 - 1}, size_t{255 * 128},
        size_t{256 * 128 + 1}, size_t{100'000}, bytes.size() - 3}) {
    for (const size_t first : {0, 3}) {
      const auto part = std::span<const unsigned char>(bytes).subspan(first, size);
      const auto feeds = static_cast<uint64_t>(std::count(part.begin(), part.end(), '\n'));
      EXPECT_EQ(sys::line_count(part), feeds + (!part.empty() && part.back() != '\n')) << size;
    }
  }
  // Nothing but line feeds is what would overflow a narrow counter.
  std::fill(bytes.begin(), bytes.end(), '\n');
  EXPECT_EQ(sys::line_count(bytes), bytes.size());
}

}  // namespace
