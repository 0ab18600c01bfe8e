// Delimited text: what is a header, a row, a field and a value, and that no way of loading changes them.
#include "readers/delimited.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <mutex>
#include <numeric>
#include <random>

#include "delimited_reference.h"
#include "loading.h"
#include "readers/delimited_rows.h"
#include "runtime/exc.h"
#include "runtime/mem.h"
#include "runtime/tag.h"

namespace mirn2::rd {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

using Values = std::vector<double>;

class Delimited : public Reading<ReaderDelimited> {
 protected:
  Opened open(const std::string& content, char delimiter = ',') const {
    return Reading::open(content, delimiter);
  }
  static void append(const ReaderDelimited& reader, const char* more) {
    std::ofstream(reader.path(), std::ios::app) << more;
  }

  // Every variable of the file, loaded in the given order, is what the reference says.
  static void expect_reference(const std::string& content, ReaderDelimited& reader,
                               const std::vector<size_t>& order) {
    const reference::DelimitedFile plain(content, reader.delimiter);
    ASSERT_EQ(leaves(reader), plain.titles());
    for (const size_t i : order) {
      const std::string& name = plain.titles()[i];
      const reference::Series expected = plain.load(plain.column(name), "test");
      const Samples read = load(reader, name);
      const size_t bytes = expected.y.size() * sizeof(double);
      ASSERT_EQ(read.y.size(), expected.y.size()) << name;
      ASSERT_TRUE(bytes == 0 || std::memcmp(read.x.data(), expected.x.data(), bytes) == 0) << name;
      ASSERT_TRUE(bytes == 0 || std::memcmp(read.y.data(), expected.y.data(), bytes) == 0) << name;
    }
  }
};

TEST_F(Delimited, ProbeTakesTheFirstDelimiterThatThreeLinesHoldEquallyOften) {
  const struct {
    std::string content;
    char delimiter;
    const char* explanation;
  } cases[] = {
      {"t\ta,b\tc\n1\t2,3\t4\n1\t2,3\t4\n", '\t', ""},
      {"t,a\n1,2\n3,4", ',', ""},
      {"t;a|b\n1;2|3\n1;2|3\n", ';', ""},
      {"t|a\n1|2\n3|4\n", '|', ""},
      {"t,a\n1,2\n", 0, "only 2 line(s)"},
      {"", 0, "empty"},
      {"one\ntwo\nthree\n", 0, "none of"},
      {"t,a,b\n1,2,3\n1,2\n", 0, "line 1 holds it 2 times, but line 3 ('1,2') holds it 1 times"},
      {"made by me\nt;a\n1;2\n3;4\n", 0, "line 1 ('made by me') holds it 0 times; remove the 1 line(s)"},
      {"a\n\nb\nt,a\n1,2\n3,4\n", 0, "remove the 3 line(s)"},
      {"t,a\0,\n1,2\n1,2\n"s, ',', ""},
      {"\0\0,\n\0,\n,\n"s, 0, "comes closest"},
      {"\xff\xfet", 0, "UTF-16"},
  };
  for (const auto& c : cases) {
    std::string explanation;
    EXPECT_EQ(probe_delimiter(make("any.csv", c.content), &explanation), c.delimiter) << c.content;
    EXPECT_THAT(explanation, HasSubstr(c.explanation)) << c.content;
  }
}

TEST_F(Delimited, HeaderEndsBeforeTheFirstLineThatBeginsLikeANumber) {
  const struct {
    std::string content;
    uint64_t header_lines;
    size_t rows;
  } cases[] = {
      {"", 1, 0},
      {"t,a\n", 1, 0},
      {"t,a\nx,1\ny,2\n", 1, 2},
      {"t,a\n0,1\n1,2\n2,3\n", 1, 3},
      {"t,a\ns,unit\n0,1\n1,2\n", 2, 2},
      {"t,a\n,1\n0,1\n1,2\n", 2, 2},
      {"t,a\n12:30:01,1\n12:30:02,1\n12:30:03,1\n", 1, 3},
      {"t,a\n\n\n0,1\n1,2\n", 3, 2},
      {"\xef\xbb\xbft,a\n-1.5e+3,1\n0X1,2\n3,3\n", 1, 3},
      {"t,a\n2026-11-21T04,1\n2026-11-21T05,2\n2026-11-21T06,3\n", 4, 0},
  };
  for (const auto& c : cases) {
    const auto reader = open(c.content);
    EXPECT_EQ(reader->header_lines, c.header_lines) << c.content;
    if (reader->variables().empty()) continue;
    EXPECT_EQ(load(*reader, "a").y.size(), c.rows) << c.content;
  }
  const char* reason = "are not read: the first field of line 2, '2026-11-21T04', contains 'T'";
  EXPECT_EQ(log_lines(std::string("3 lines below the titles count as header and ") + reason).size(), 1u);
}

TEST_F(Delimited, TitlesAreTheFieldsBehindTheFirst) {
  const auto reader = open("t;a;;\"b;a\r\n0;1;2;3;4\n1;5;6;7;8\n", ';');
  EXPECT_THAT(leaves(*reader), ElementsAre("a", "", "\"b", "a"));
  EXPECT_THAT(load(*reader, "a").y, ElementsAre(4, 8)) << "the last of repeated titles";
  EXPECT_EQ(reader->row_capacity, 103u);
  EXPECT_THAT(load(*reader, "").y, ElementsAre(2, 6));
  EXPECT_THROW(load(*reader, "t"), mirn3::exc::error_t);
  rto_t request;
  request.name = "unknown";
  request.tolerate_unknown = true;
  reader->load(request);
  EXPECT_TRUE(request.x.empty() && request.y.empty());
  EXPECT_THROW(ReaderDelimited("x.csv", '\n'), mirn3::exc::error_t);
}

TEST_F(Delimited, RowsAndFields) {
  const std::string head = "t,a,b\n";
  const struct {
    const char* why;
    std::string rows;
    Values a, b;
  } cases[] = {
      {"plain", "0,1,2\n1,3,4\n2,5,6\n", {1, 3, 5}, {2, 4, 6}},
      {"carriage returns end rows", "0,1,2\r\n1,3\r,4\n2,5,6\n", {1, 3, 5}, {2, 6}},
      {"zero bytes end rows", "0,1,2\n1,3\0,4\n2,5,6\n"s, {1, 3, 5}, {2, 6}},
      {"empty fields are skipped", "0,1,2\n1,,4\n2,5,\n3,,\n", {1, 5}, {2, 4}},
      {"short rows are skipped", "0,1,2\n1\n2,5\n3,7,8\n", {1, 5, 7}, {2, 8}},
      {"long rows are fine", "0,1,2,3,4\n1,3,4\n2,5,6,\n", {1, 3, 5}, {2, 4, 6}},
      {"an empty line ends the data", "0,1,2\n1,3,4\n\n2,5,6\n", {1, 3}, {2, 4}},
      {"so does a line of a zero byte", "0,1,2\n1,3,4\n\0,9\n2,5,6\n"s, {1, 3}, {2, 4}},
      {"and a line cut to one character", "0,1,2\n1,3,4\n2\0,9\n2,5,6\n"s, {1, 3}, {2, 4}},
      {"a carriage return alone is a short row", "0,1,2\n1,3,4\n\r\n2,5,6\n", {1, 3, 5}, {2, 4, 6}},
      {"the last line feed may be missing", "0,1,2\n1,3,4\n2,5,6", {1, 3, 5}, {2, 4, 6}},
      {"an unfinished last line is no row", "0,1,2\n1,3,4\n2,5", {1, 3}, {2, 4}},
      {"a finished one is", "0,1,2\n1,3,4\n2,5\n", {1, 3, 5}, {2, 4}},
      {"numbers read as far as they go", "0,12abc,-0.5\n1,1e2,.5\n2,0x10,5.\n", {12, 100, 0}, {-0.5, 0.5, 5}},
  };
  for (const auto& c : cases) {
    const auto reader = open(head + c.rows);
    EXPECT_EQ(load(*reader, "a").y, c.a) << c.why;
    EXPECT_EQ(load(*reader, "b").y, c.b) << c.why;
  }
  EXPECT_FALSE(log_lines("variable 'b': 1 of 3 rows skipped for a missing value").empty());
  EXPECT_FALSE(log_lines("the last line is not finished and was left out").empty());
}

TEST_F(Delimited, ValueTypeIsThatOfTheFirstRow) {
  const auto reader = open(
      "t,small,large,state,number\n0,0x1F,0X1f,ON,1\n1,ff,-0x2,OFF,x\n2,zz,7fffffffffffffffffff,ON,1e999\n3,,"
      "1,x y,\n");
  EXPECT_THAT(load(*reader, "small").y, ElementsAre(31, 255, 0));
  EXPECT_THAT(load(*reader, "large").y, ElementsAre(31, -2, 9223372036854775807.0, 1));
  const Values states = load(*reader, "state", "states").y;
  EXPECT_THAT(states, ElementsAre(0, 1, 0, 2)) << "numbered in the order of the rows";
  EXPECT_EQ(mirn3::tag::get("states", states[3]), "x y");
  // No number, and one out of range.
  EXPECT_EQ(load(*reader, "number"), (Samples{{0, 1, 2}, {1, NAN, NAN}}));
}

TEST_F(Delimited, TimesOfDayRunOnThroughMidnightInRowsThatAreSkipped) {
  const auto reader = open("t,a,b\n23:59:58,,1\n23:59:59.5,2\n00:00:01,3,3\n");
  EXPECT_EQ(load(*reader, "a"), (Samples{{86399.5, 86401}, {2, 3}}));
  EXPECT_EQ(load(*reader, "b"), (Samples{{86398, 86401}, {1, 3}}));
}

TEST_F(Delimited, TimeThatDoesNotIncreaseBecomesIndexes) {
  const auto reader = open("t,a\n0,1\n2,2\n1,3\n3,4\n");
  EXPECT_THAT(load(*reader, "a").x, ElementsAre(0, 1, 2, 3));
  EXPECT_FALSE(log_lines("The source provided an invalid time vector").empty());
  EXPECT_FALSE(log_lines("will be used instead for file '" + reader->path().string() + "'").empty());

  Values late(1000);  // the first 512 are looked at
  std::iota(late.begin(), late.begin() + 512, 0);
  const std::pair<Values, Values> cases[] = {{{}, {}},
                                             {{7}, {0}},
                                             {{0, 1, 1, 2}, {0, 1, 1, 2}},
                                             {{5, 5, 5}, {0, 1, 2}},
                                             {{0, 2, 1, 3}, {0, 1, 2, 3}},
                                             {late, late}};
  for (const auto& [given, expected] : cases) {
    mirn3::shared_vector<double> kept;
    kept.resize(given.size());
    std::ranges::copy(given, kept.data());
    mirn3::shared_vector<double> checked = kept;
    check_time_vector(*reader, checked);
    EXPECT_EQ(Values(checked.begin(), checked.end()), expected);
    EXPECT_EQ(Values(kept.begin(), kept.end()), given) << "samples that others hold are not written";
  }
}

// Files larger than a few pieces, so that all threads and the vector loops take part.
std::string large_file(unsigned seed, bool irregular) {
  std::mt19937 random(seed);
  std::string text = "time";
  for (int column = 1; column <= 45; ++column) text += ",c" + std::to_string(column);
  text += '\n';
  for (int row = 0; row < 9500; ++row) {
    text += std::to_string(row * 0.01);
    for (int column = 1; column <= 45; ++column) {
      const unsigned pick = random() % 1000;
      text += ',';
      if (column == 7) {
        text += pick < 500 ? "ON" : "OFF" + std::to_string(pick % 7);
      } else if (column == 11) {
        text += "0x" + std::to_string(pick);
      } else if (irregular && row != 0 && pick < 30) {
        text += std::vector<std::string>{"", "nan", "1e5", "x", "-0", "123456789012345678"}[pick % 6];
      } else {
        text += std::to_string(static_cast<double>(random()) / 1e7 - 200).substr(0, 3 + pick % 9);
      }
    }
    if (irregular && row % 97 == 5) text.resize(text.size() - 1 - random() % 60);
    text += irregular && row % 3 == 0 ? "\r\n" : "\n";
  }
  return text;
}

TEST_F(Delimited, NoOrderOfLoadsChangesAColumn) {
  for (const bool irregular : {false, true}) {
    const std::string content = large_file(irregular ? 11 : 12, irregular);
    ASSERT_GT(content.size(), 3 * DelimitedRows::usual_piece_bytes);
    std::vector<size_t> order(45);
    std::iota(order.begin(), order.end(), 0);

    const auto in_order = open(content);
    expect_reference(content, *in_order, order);
    expect_reference(content, *in_order, {3, 4, 4, 5, 30, 31, 32, 2, 3, 44, 0});
    std::shuffle(order.begin(), order.end(), std::mt19937(5));
    const auto shuffled = open(content);
    expect_reference(content, *shuffled, order);
    const auto forgetful = open(content);
    for (const size_t i : {0, 1, 2, 9, 10, 11}) {
      expect_reference(content, *forgetful, {i});
      forgetful->forget();
    }
  }
}

// The first load reads rows while the others are still being found.
TEST_F(Delimited, RowsMayTurnOutToBeNoneOrMoreThanTheBeginningPromises) {
  const auto file = [](const std::string& first_values, const char* end) {
    std::string text = "t,a,b,c\n";
    for (int row = 0; text.size() < 3 * DelimitedRows::usual_piece_bytes; ++row) {
      text += std::to_string(row) +
              (text.size() < 100'000 ? first_values : ",1." + std::to_string(row % 7) + ",,-2\n");
    }
    return text + end;
  };
  const std::string contents[] = {file(",1,2,3\n", ""), file(",1,2,3\n", "5,6"),
                                  file(",1,2,3\n", "\n5,6,7,8\n"),
                                  file(",1." + std::string(300, '0') + ",,3\n", "9,9,9,9\n")};
  for (const std::string& content : contents) {
    const uint64_t used = mirn3::mem::memory_used;
    {
      const auto reader = open(content);
      expect_reference(content, *reader, {0, 1, 2});
      expect_reference(content, *open(content), {2, 0});
    }
    EXPECT_EQ(mirn3::mem::memory_used, used);
  }
}

TEST_F(Delimited, ReadsAheadOnlyIntoWhatTheBudgetHasLeft) {
  const std::string content = large_file(13, false);
  const auto reader = open(content);
  const uint64_t bank = mirn3::mem::memory_bank, used = mirn3::mem::memory_used;
  const uint64_t column = 9700 * sizeof(double);
  mirn3::mem::memory_bank = used + 30 * column;
  std::vector<rto_t> kept;
  const auto keep = [&](const char* name) {
    reader->load(kept.emplace_back(rto_t{.tag_key = "", .name = name, .x = {}, .y = {}}));
  };
  for (const char* name : {"c1", "c2", "c3", "c4", "c5", "c6"}) keep(name);
  EXPECT_LT(mirn3::mem::memory_used, used + 30 * column);
  mirn3::mem::memory_bank = used;  // exceeded from now on: nothing is kept
  keep("c8");
  kept.clear();
  EXPECT_LE(mirn3::mem::memory_used, used);
  mirn3::mem::memory_bank = bank;
  expect_reference(content, *reader, {20, 21, 22});
}

TEST_F(Delimited, PiecesOfAnySizeGiveTheSameRows) {
  const std::string content = "t,a\n0,1\n\r\n22,333\n4,5\0,6\n7777777777,8\n9,1\n1\0\n2,3\n"s;
  for (size_t piece_bytes = 1; piece_bytes < 70; ++piece_bytes) {
    std::mutex guard;
    std::map<uint64_t, std::string> visited;  // by row
    const auto visit = [&](size_t, const scan::RowSpan& span, uint64_t first) {
      const std::lock_guard lock(guard);
      for (size_t row = 0; row < span.rows; ++row) visited[first + row] = {span.start(row), span.end(row)};
    };
    const DelimitedRows rows(make("any.csv", content), ',', 1, piece_bytes,
                             [&](std::string_view, size_t) { return visit; });
    ASSERT_EQ(rows.rows(), 6u) << piece_bytes;
    EXPECT_EQ(rows.line_count(), 9u);
    std::vector<std::string> ends;
    for (size_t piece = 0; piece < rows.pieces(); ++piece) {
      const scan::RowSpan span = rows.span(piece);
      for (size_t row = 0; row < span.rows; ++row) ends.emplace_back(span.start(row), span.end(row));
    }
    EXPECT_THAT(ends, ElementsAre("0,1", "\r", "22,333", "4,5\0,6"s, "7777777777,8", "9,1"));
    EXPECT_FALSE(visited.empty());
    for (const auto& [row, text] : visited) {
      if (row < ends.size()) {
        EXPECT_EQ(text, ends[row]) << piece_bytes;
      }
    }
  }
}

TEST_F(Delimited, FileThatGrowsOrChangesIsReadAnew) {
  const auto reader = open("t,a,b\n0,1,2\n1,3,4\n");
  EXPECT_THAT(load(*reader, "a").y, ElementsAre(1, 3));
  append(*reader, "2,5,6\n3,7");
  EXPECT_THAT(load(*reader, "a").y, ElementsAre(1, 3, 5));
  append(*reader, "7,8\n");
  EXPECT_THAT(load(*reader, "a").y, ElementsAre(1, 3, 5, 77));
  EXPECT_THAT(load(*reader, "b").y, ElementsAre(2, 4, 6, 8));
  open("t,a,b\n0,9,9\n");
  EXPECT_THAT(load(*reader, "b").y, ElementsAre(9));
  fs::remove(reader->path());
  EXPECT_THROW(load(*reader, "a"), mirn3::exc::error_t);
}

TEST_F(Delimited, ExtremeShapes) {
  std::string titles = "t", row = "0";
  for (int i = 0; i < 300000; ++i) {
    titles += ",v" + std::to_string(i);
    row += "," + std::to_string(i);
  }
  const auto many = open(titles + "\n" + row + "\n1\n" + row + "\n");
  EXPECT_EQ(many->variables().size(), 300000u);
  EXPECT_THAT(load(*many, "v299999").y, ElementsAre(299999, 299999));
  for (int i = 100; i < 400; ++i) EXPECT_THAT(load(*many, "v" + std::to_string(i)).y, ElementsAre(i, i));

  const auto long_field = open("t,a,b\n0," + std::string(10 << 20, '1') + ",2\n1,3,4\n");
  EXPECT_EQ(load(*long_field, "a"), (Samples{{0, 1}, {NAN, 3}}));
  EXPECT_THAT(load(*long_field, "b").y, ElementsAre(2, 4));
  EXPECT_THROW(open(std::string(5 << 20, ',')), mirn3::exc::error_t) << "five million titles";
}

TEST_F(Delimited, RecordedFilesLoad) {
  const fs::path samples = fs::path(KVALO_RECORDED_DATA) / "text";
  if (!fs::is_directory(samples)) GTEST_SKIP() << samples << " is not on this machine";
  for (const auto& entry : fs::directory_iterator(samples)) {
    if (entry.path().extension() != ".csv") continue;
    std::string explanation;
    const char delimiter = probe_delimiter(entry.path(), &explanation);
    ASSERT_NE(delimiter, 0) << entry.path() << explanation;
    const auto reader = open_file(entry.path(), delimiter);
    std::vector<size_t> order(reader->variables().size());
    std::iota(order.begin(), order.end(), 0);
    expect_reference(content(entry.path()), *reader, order);
    EXPECT_FALSE(order.empty());
  }
}

}  // namespace
}  // namespace mirn2::rd
