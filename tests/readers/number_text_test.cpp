// Number fields, one at a time and many at once, against the standard library.
#include "readers/number_text.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "delimited_reference.h"
#include "readers/delimited_scan.h"

namespace mirn2::rd {
namespace {

uint64_t bits(double value) { return std::bit_cast<uint64_t>(value); }

double standard_number(const std::string& text) { return reference::DelimitedFile::number(text); }

// A text of one of the shapes that fields have, right and wrong ones.
std::string any_text(std::mt19937_64& random) {
  const auto below = [&](size_t n) { return static_cast<size_t>(random() % n); };
  const auto digits = [&](size_t most) {
    std::string text;
    for (size_t n = below(most + 1); n != 0; --n) text += static_cast<char>('0' + below(10));
    return text;
  };
  constexpr std::string_view characters = "0123456789.-+eExX ainfNAIF\"";
  std::string any;
  for (size_t n = below(18); n != 0; --n) any += characters[below(characters.size())];
  const char* const words[] = {"inf", "nan", "Infinity", "NaN(x)", "in", "-1", "+1", " 1"};
  char shortest[32];
  const auto printed = std::to_chars(shortest, shortest + sizeof shortest, std::bit_cast<double>(random()));
  const std::string exponent = (below(2) != 0 ? "e-" : "e") + digits(3);
  const std::string shapes[] = {digits(20),
                                digits(4) + "." + digits(14),
                                digits(3) + "." + digits(20) + exponent,
                                std::string(shortest, printed.ptr),
                                any,
                                words[below(8)],
                                digits(5) + "." + digits(6)};
  return (below(3) == 0 ? "-" : "") + shapes[below(std::size(shapes))];
}

TEST(NumberText, ReadsWhatFromCharsReadsOneAtATimeAndInRows) {
  std::mt19937_64 random(302);
  constexpr size_t fields = 5;
  for (int round = 0; round < 600; ++round) {
    std::string text;
    std::vector<uint32_t> starts;
    std::vector<std::string> expected;
    for (int row = 0; row < 100; ++row) {
      starts.push_back(static_cast<uint32_t>(text.size()));
      for (size_t k = 0; k < fields; ++k) {
        const std::string& one = expected.emplace_back(any_text(random));
        ASSERT_EQ(bits(read_number(one.data(), one.data() + one.size())), bits(standard_number(one)))
            << "'" << one << "'";
        text += one + (k + 1 < fields ? ',' : '\n');
      }
    }
    const size_t size = text.size();
    text += std::string(1000, ' ');
    const std::pair<scan::Level, bool> ways[] = {
        {scan::Level::plain, false}, {scan::best_level(), false}, {scan::best_level(), true}};
    for (const auto& [level, past_caches] : ways) {
      // Outputs that reach a cache line in the same row, or in different ones.
      const auto shift = [&](size_t k) { return static_cast<size_t>(round) % 8 + (round % 3 == 0 ? k : 0); };
      std::vector<std::vector<double>> columns(fields, std::vector<double>(starts.size() + 8 + fields));
      std::vector<double*> out;
      for (size_t k = 0; k < fields; ++k) out.push_back(columns[k].data() + shift(k));
      std::vector<uint64_t> odd(fields);
      scan::read_numbers(level, {.span = {.base = text.data(),
                                          .starts = starts.data(),
                                          .rows = starts.size(),
                                          .last_end = text.data() + size - 1,
                                          .readable = text.data() + text.size()},
                                 .fields = fields,
                                 .out = out.data(),
                                 .odd = odd.data(),
                                 .past_caches = past_caches});
      for (size_t i = 0; i < expected.size(); ++i) {
        const double read = out[i % fields][i / fields];
        const bool right =
            expected[i].empty() ? scan::is_missing(read) : bits(read) == bits(standard_number(expected[i]));
        ASSERT_TRUE(right) << read << " for '" << expected[i] << "'";
      }
    }
  }
}

TEST(NumberText, ReadsHexadecimalAsStrtollDoes) {
  std::mt19937_64 random(303);
  constexpr std::string_view characters = "0123456789abcdefABCDEFxX+- \tg";
  for (int i = 0; i < 100000; ++i) {
    std::string text = random() % 2 != 0 ? "0x" : "";
    for (size_t n = random() % 20; n != 0; --n) text += characters[random() % characters.size()];
    const auto expected = static_cast<double>(std::strtoll(text.c_str(), nullptr, 16));
    ASSERT_EQ(bits(read_hexadecimal(text.data(), text.data() + text.size())), bits(expected))
        << "'" << text << "'";
  }
}

}  // namespace
}  // namespace mirn2::rd
