// Which form each kind of chart takes, what its texts say, and which batches a page gets.
#include "view/views.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "messages.h"
#include "runtime/dsp_fft.h"
#include "samples.h"
#include "view/client.h"
#include "view/csv.h"
#include "view/texts.h"

namespace {

using namespace kvalo_view;
using testing::HasSubstr;
constexpr double nan = View::nan;

template <typename T>
std::vector<T> read(const Tile& tile, size_t offset, size_t n) {
  EXPECT_LE(offset + n * sizeof(T), tile.data.size());
  std::vector<T> result(n);
  std::memcpy(result.data(), tile.data.data() + offset, n * sizeof(T));
  return result;
}

View view_of(Range x, size_t width) {
  View view;
  view.seq = 7;
  view.x = x;
  view.width = width;
  view.height = 50;
  return view;
}

struct Charts {
  Store store;
  Views views;

  std::vector<Tile> tiles(const View& view = {}, uint64_t id = 1) {
    return views.tiles(*store.state()->chart(id), view);
  }
  Tile tile(const View& view = {}) {
    auto all = tiles(view);
    EXPECT_EQ(all.size(), 1U);
    return all.empty() ? Tile{} : all[0];
  }
};

TEST(Tiles, OfALine) {
  Charts charts;
  const TestSamples s = random_samples(5000, 2, true);
  plot(charts.store, 1, 4, s.x, s.y);
  const Tile tile = charts.tile(view_of({s.x[1000], s.x[4000]}, 100));
  const TileHeader& h = tile.header;
  EXPECT_EQ(h.form, Form::columns);
  EXPECT_EQ(h.flags, tile_decimated);
  EXPECT_EQ(h.seq, 7U);
  EXPECT_EQ(h.n, 100U);
  EXPECT_EQ(h.ratio, 30U);
  EXPECT_EQ(h.before_y, s.y[999]);
  EXPECT_EQ(tile.bytes().size(), 96U + 1700);
  const auto floats = read<float>(tile, 0, 400);
  const double greatest = *std::max_element(s.y.begin() + 1000, s.y.begin() + 4001);
  EXPECT_NEAR(h.y0 + *std::max_element(floats.begin(), floats.end()), greatest, 1e-5);

  // Fewer than two samples a column: the samples, and one more on each side.
  const Tile raw = charts.tile(view_of({s.x[1000], s.x[1100]}, 100));
  EXPECT_EQ(raw.header.form, Form::samples);
  EXPECT_EQ(raw.header.n, 103U);
  EXPECT_EQ(read<double>(raw, 8 * 103, 1)[0], s.y[999]);
  EXPECT_EQ(charts.tile(view_of({-100, -50}, 10)).header.flags, tile_nothing);

  View follow = view_of({0, 10}, 10);
  follow.follow = true;
  EXPECT_EQ(charts.tile(follow).header.x1, s.x.back());
}

TEST(Tiles, OfAwkwardSeries) {
  const std::vector<double> none;
  const struct {
    const char* name;
    std::vector<double> x, y;
    Form form;
    uint32_t n;
  } cases[] = {
      {"none", none, none, Form::samples, 0},
      {"one", {5}, {1}, Form::samples, 1},
      {"all NaN", {0, 1}, {nan, nan}, Form::samples, 2},
      {"all infinite", {0, 1}, {INFINITY, -INFINITY}, Form::samples, 2},
      {"descending", {3, 2, 1}, {1, 2, 3}, Form::samples, 3},
      {"alike", {1, 1}, {1, 2}, Form::samples, 2},
      {"time without a number", {nan, nan}, {1, 2}, Form::samples, 0},
      {"huge", {0, 1, 2, 3}, {-1e308, 1e308, 0, 1}, Form::columns, 1},
  };
  for (const auto& one : cases) {
    for (const char* kind :
         {"chart2d_line", "chart2d_bool", "chart2d_fft", "chart2d_hist", "chart2d_spectro", "chart2d_cross",
          "chart2d_heatmap", "chart2d_bode", "chart2d_xcorr", "chart3d_line"}) {
      Charts charts;
      plot(charts.store, 1, 1, one.x, one.y, kind);
      plot(charts.store, 1, 2, one.x, one.y, kind);
      plot(charts.store, 1, 3, one.x, one.y, kind);
      View view;
      view.width = one.form == Form::columns ? 1 : 100;
      const auto tiles = charts.tiles(view);
      const auto chart = charts.store.state()->chart(1);
      EXPECT_TRUE(!tiles.empty() || charts.views.error(*chart) != "") << one.name << ' ' << kind;
      if (chart->kind == Kind::line) {
        EXPECT_EQ(tiles.at(0).header.form, one.form) << one.name;
        EXPECT_EQ(tiles.at(0).header.n, one.n) << one.name;
        EXPECT_LT(tiles.at(0).header.x0, tiles.at(0).header.x1) << one.name;
      }
      charts.views.values(*chart, 1);
      charts.views.statistics(*chart, {0, 1});
      state_text(*charts.store.state(), charts.views, 1, {});
    }
  }
}

TEST(Tiles, OfTruth) {
  // On both sides of 0, so that extremes alone do not tell whether 0 is there.
  for (const double sign : {1.0, -1.0, 0.5}) {
    Charts charts;
    std::vector<double> x, y;
    for (int i = 0; i < 1000; ++i) {
      x.push_back(i);
      y.push_back(sign == 0.5 ? (i % 2 == 0 ? -3 : 4) : sign * 3);
    }
    y[555] = 0;
    plot(charts.store, 1, 1, x, y, "chart2d_bool");
    const Tile tile = charts.tile(view_of({0, 1000}, 10));
    EXPECT_EQ(tile.header.form, Form::hold_columns);
    EXPECT_TRUE(tile.header.flags & tile_hold);
    for (size_t k = 0; k < 10; ++k) {
      const auto column = read<float>(tile, 16 * k, 4);
      EXPECT_EQ(tile.header.y0 + column[1], k == 5 ? 0 : 1) << sign << ' ' << k;
      EXPECT_EQ(tile.header.y0 + column[2], 1) << sign << ' ' << k;
    }
  }
}

TEST(Tiles, OfDots) {
  Charts charts;
  const TestSamples s = random_samples(200'000, 3, true);
  dto_chart_t record = chart_record(1, 1, s.x, s.y);
  record.style = 2;
  send(charts.store, "chart2d_line", record);
  const Tile tile = charts.tile(view_of({nan, nan}, 1000));
  EXPECT_TRUE(tile.header.form == Form::pixels || tile.header.form == Form::mask);
  EXPECT_TRUE(tile.header.flags & tile_dots);
  const Tile few = charts.tile(view_of({s.x[10], s.x[60]}, 1000));
  EXPECT_EQ(few.header.form, Form::samples);
  EXPECT_GE(few.header.n, 51U);
  const Tile clouds = [&] {
    Charts pair;
    plot(pair.store, 1, 1, s.x, s.y, "chart2d_cross");
    plot(pair.store, 1, 2, s.x, random_samples(200'000, 4, true).y, "chart2d_cross");
    return pair.tile(view_of({nan, nan}, 64));
  }();
  EXPECT_EQ(clouds.header.series, 1U);
  EXPECT_EQ(clouds.header.form, Form::mask);
  EXPECT_EQ(clouds.data.size(), 50U * 2 * 4);
}

TEST(Tiles, OfDataThatTheRuntimeComputes) {
  const TestSamples s = random_samples(600, 5, true), other = random_samples(600, 6, true);
  {
    Charts charts;
    plot(charts.store, 1, 1, s.x, s.y, "chart2d_fft");
    View view = view_of({nan, nan}, 4000);
    const Tile tile = charts.tile(view);
    std::vector<double> lines(301);
    mirn3::dsp::fft_values({s.x.data(), s.y.data(), 0, 600}, false, lines);
    EXPECT_EQ(read<double>(tile, 8 * 301, 301), lines);
    view.span = {s.x[100], s.x[299]};
    EXPECT_LT(charts.tile(view).header.n, 130U);  // of the 200 samples or so in the span
  }
  {
    Charts charts;
    dto_chart_t record = chart_record(1, 1, s.x, s.y);
    record.param = 12;
    send(charts.store, "chart2d_hist", record);
    const Tile tile = charts.tile();
    EXPECT_EQ(tile.header.n, 12U);
    const auto counts = read<double>(tile, 96, 12);
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), 0.0), 600);
    EXPECT_NEAR(tile.header.x0, *std::min_element(s.y.begin(), s.y.end()), 1e-9);
  }
  {
    Charts charts;
    plot(charts.store, 1, 1, s.x, s.y, "chart2d_heatmap");
    EXPECT_TRUE(charts.tiles().empty());
    EXPECT_THAT(charts.views.error(*charts.store.state()->chart(1)), HasSubstr("two series"));
    plot(charts.store, 1, 2, other.x, other.y, "chart2d_heatmap");
    const Tile tile = charts.tile();
    EXPECT_EQ(tile.header.form, Form::grid);
    const auto cells = read<float>(tile, 0, 900);
    const auto held = held_at(s.x, other.x, other.y);
    const auto pairs = std::count_if(held.begin(), held.end(), [](double v) { return v == v; });
    EXPECT_EQ(std::accumulate(cells.begin(), cells.end(), 0.0), static_cast<double>(pairs));
  }
  {
    Charts charts;
    dto_chart_t record = chart_record(1, 1, {0, 1, 2}, {1, 2, 3, 4, 5, 6});
    record.z = shared({10, 20});
    send(charts.store, "chart3d_mesh", record);
    const Tile tile = charts.tile();
    EXPECT_EQ(tile.header.form, Form::mesh);
    EXPECT_EQ(read<float>(tile, 8 * 5, 6), (std::vector<float>{1, 2, 3, 4, 5, 6}));
  }
}

TEST(Values, AndStatistics) {
  Charts charts;
  plot(charts.store, 1, 1, {0, 1, 2, 3, 4}, {5, nan, 7, -1, 3});
  const auto chart = charts.store.state()->chart(1);
  const auto at = charts.views.values(*chart, 2.6);
  EXPECT_TRUE(at[0].held.x == 2 && at[0].held.y == 7 && at[0].near.x == 3 && at[0].near.y == -1);
  EXPECT_TRUE(std::isnan(charts.views.values(*chart, -1)[0].held.x));
  EXPECT_EQ(charts.views.values(*chart, nan)[0].held.y, 3);
  const Statistics s = charts.views.statistics(*chart, {0, 3})[0];
  EXPECT_TRUE(s.n == 4 && s.finite == 3 && s.least.x == 3 && s.greatest.y == 7 && s.last.y == -1);
  EXPECT_NEAR(s.mean, 11.0 / 3, 1e-12);
  EXPECT_NEAR(s.deviation, std::sqrt((16 + 100 + 196) / 18.0), 1e-12);
  EXPECT_THAT(statistics_text(*chart, 3, {5, 6}, charts.views.statistics(*chart, {5, 6})),
              HasSubstr("\"mean\":null"));
}

TEST(Texts, OfTheState) {
  Charts charts;
  dto_chart_t record = chart_record(1, uint64_t{1} << 63, {0, 1}, {2, 3});
  record.name = "a\"b\\\n\xff\xc3\xa9";
  send(charts.store, "chart2d_line", record);
  dto_obj2d_t flag;
  flag.x = nan;
  flag.y = 4;
  flag.chart = 1;
  std::strcpy(flag.text, "top");
  send(charts.store, "obj2d_flag", flag);
  const auto text = [&] { return state_text(*charts.store.state(), charts.views, 3, {"t", false}); };
  EXPECT_THAT(text(), HasSubstr(R"("id":"9223372036854775808","name":"a\"b\\\u000a?é")"));
  EXPECT_THAT(text(), HasSubstr(R"({"type":"flag","x":null,"y":4,"text":"top","color":null})"));
  EXPECT_THAT(text(), HasSubstr(R"("busy":true)"));
  charts.tiles();
  EXPECT_THAT(text(), HasSubstr(R"("ascending":true,"t0":0,"t1":1,"ymin":2,"ymax":3)"));
}

TEST(CsvRows, OneForEachStamp) {
  Store store;
  plot(store, 1, 1, {0, 1, 2, 4}, {1, nan, 0.1, 9});
  dto_chart_t second = chart_record(1, 2, {1, 1, 3}, {5, 6, 7});
  second.name = "a,b";
  send(store, "chart2d_line", second);
  Csv csv(store.state()->chart(1), {0.5, 3});
  EXPECT_EQ(csv.next(), "time,s1,\"a,b\"\r\n1,nan,5\r\n1,,6\r\n2,0.1,\r\n3,,7\r\n");
  EXPECT_EQ(csv.next(), "");
}

// ---- what a page is sent ----

std::string request(uint8_t kind, uint32_t seq, uint32_t chart, double a, double b, uint8_t flags = 0,
                    uint16_t width = 100) {
  std::string frame(48, '\0');
  const auto put = [&](size_t at, const auto& value) {
    std::memcpy(frame.data() + at, &value, sizeof value);
  };
  put(0, kind);
  put(1, flags);
  put(4, seq);
  put(8, chart);
  put(12, width);
  put(14, width);
  put(16, a);
  put(24, b);
  put(32, nan);
  put(40, nan);
  return frame;
}

struct Page {
  Store store;
  Views views;
  Client client;
  Clock::time_point now = Clock::now();

  bool ask(const std::string& frame) { return client.take(frame, *store.state()); }
  std::optional<Batch> next() {
    now += std::chrono::milliseconds(40);
    return client.next(store.state(), views.changes(), now);
  }
  Answer answered(const Batch& batch, std::chrono::milliseconds time = std::chrono::seconds(10)) {
    Answer result = answer(batch, views, {}, time);
    client.answered(result);
    return result;
  }
  // Lets everything be sent that is due.
  void settle() {
    while (auto batch = next()) {
      answered(*batch);
      ask(request(4, batch->number, 0, 0, 0));
    }
  }
};

TEST(Batches, NewestViewWinsAndNothingComesBeforeTheAcknowledgement) {
  Page page;
  plot(page.store, 1, 1, {0, 1, 2}, {0, 1, 2});
  auto batch = page.next();
  ASSERT_TRUE(batch && batch->has_state && batch->number == 1);
  page.answered(*batch);
  for (uint32_t seq = 1; seq <= 50; ++seq) EXPECT_TRUE(page.ask(request(1, seq, 1, 0, seq)));
  EXPECT_FALSE(page.next());
  EXPECT_TRUE(page.ask(request(4, 99, 0, 0, 0)));  // of no batch
  EXPECT_FALSE(page.next());
  page.ask(request(4, 1, 0, 0, 0));
  batch = page.next();
  ASSERT_TRUE(batch);
  ASSERT_EQ(batch->views.size(), 1U);
  EXPECT_EQ(batch->views[0].view.seq, 50U);
  EXPECT_TRUE(batch->views[0].has_overview);
  const Answer answer = page.answered(*batch);
  EXPECT_EQ(answer.frames.size(), 3U);  // view, overview, end
  EXPECT_THAT(answer.frames.back().bytes, HasSubstr("\"end\""));
  page.ask(request(4, 2, 0, 0, 0));
  batch = page.next();  // now the series' range is known
  EXPECT_TRUE(batch && batch->has_state && batch->views.empty());
}

TEST(Batches, NotTooOftenAndNotToHiddenTabs) {
  Page page;
  plot(page.store, 1, 1, {0, 1}, {0, 1});
  page.ask(request(1, 1, 1, nan, nan));
  page.settle();
  plot(page.store, 1, 1, {0, 1, 2}, {0, 1, 2});
  const auto batch = page.next();
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->views.at(0).view.flags, tile_push);
  EXPECT_FALSE(batch->views[0].has_overview);  // too soon
  page.answered(*batch);
  page.ask(request(4, batch->number, 0, 0, 0));
  plot(page.store, 1, 1, {0, 1, 3}, {0, 1, 2});
  EXPECT_FALSE(
      page.client.next(page.store.state(), page.views.changes(), page.now + std::chrono::milliseconds(5)));
  EXPECT_TRUE(page.client.later());
  page.ask(request(5, 0, 0, 0, 0, 0));
  EXPECT_FALSE(page.next());
  page.ask(request(5, 0, 0, 0, 0, 1));
  EXPECT_TRUE(page.next());
}

TEST(Batches, ViewsThatTakeTooLongComeLater) {
  Page page;
  for (uint64_t id = 1; id <= 3; ++id) {
    plot(page.store, id, 1, {0, 1}, {0, 1});
    page.ask(request(1, 1, static_cast<uint32_t>(id), nan, nan));
  }
  const auto batch = page.next();
  const Answer first = page.answered(*batch, std::chrono::milliseconds(-1));
  EXPECT_EQ(first.late, (std::vector<uint32_t>{2, 3}));
  page.ask(request(4, 1, 0, 0, 0));
  EXPECT_EQ(page.next()->views.size(), 2U);
}

TEST(Batches, RequestsThatNoPageSends) {
  Page page;
  plot(page.store, 1, 1, {0, 1}, {0, 1});
  const std::string bad[] = {"",
                             "x",
                             std::string(47, '\0'),
                             std::string(49, '\1'),
                             request(0, 1, 1, 0, 1),
                             request(7, 1, 1, 0, 1),
                             request(255, 1, 1, 0, 1),
                             request(1, 1, 1, 1, 1),
                             request(1, 1, 1, 0, INFINITY),
                             request(1, 1, 1, 0, nan),
                             request(1, 1, 1, 0, 1, 0, 0),
                             request(1, 1, 1, 0, 1, 0, 20000),
                             request(3, 1, 1, 2, 1),
                             request(6, 1, 1, 2, 1)};
  for (const std::string& frame : bad) EXPECT_FALSE(page.ask(frame)) << frame.size();
  EXPECT_TRUE(page.ask(request(1, 1, 12345, 0, 1)));  // a chart that is gone
  EXPECT_TRUE(page.next()->views.empty());
}

}  // namespace
