// The store: every message, and what a host is asked for besides.
#include "view/store.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "messages.h"
#include "runtime/mem.h"

namespace {

using namespace kvalo_view;
using mirn3::var_t;
const std::vector<double> ramp{0, 1, 2, 3};

TEST(Store, ChartsOnPages) {
  Store store;
  plot(store, 5, 1, ramp, ramp);
  dto_page_t page;
  page.id = 9;
  std::strcpy(page.name, "Attitude");
  send(store, "page_new_page", page);
  plot(store, 6, 1, ramp, ramp, "chart2d_bool");
  plot(store, 6, 2, ramp, ramp, "chart2d_bool");
  send(store, "page_set_page", dto_page_set_page_t{9, 2});
  auto state = store.state();
  ASSERT_EQ(state->pages.size(), 2U);
  EXPECT_EQ(state->pages[1].name, "Attitude");
  EXPECT_EQ(state->pages[1].cols, 2);
  EXPECT_EQ(state->page, 9U);
  EXPECT_EQ(state->chart(6)->page, 9U);
  EXPECT_EQ(state->chart(6)->kind, Kind::boolean);
  EXPECT_EQ(state->chart(6)->series.size(), 2U);
  EXPECT_EQ(state->chart_of_key(state->chart(5)->key)->page, state->pages[0].id);

  send(store, "page_del_page", page);
  EXPECT_EQ(store.state()->chart(6), nullptr);
  EXPECT_EQ(store.state()->page, state->pages[0].id);
  EXPECT_EQ(state->chart(6)->series.size(), 2U);  // who holds a state keeps it
  dto_page_t named;
  std::strcpy(named.name, "Charts");
  send(store, "page_del_page", named);
  EXPECT_TRUE(store.state()->charts.empty() && store.state()->pages.empty());
}

TEST(Store, CloseOneOrAll) {
  Store store;
  const auto left = [&] { return std::pair(store.state()->charts.size(), store.state()->pages.size()); };
  dto_page_t page;
  for (page.id = 9; page.id <= 10; ++page.id) {
    send(store, "page_new_page", page);
    plot(store, page.id + 100, 1, ramp, ramp);
    plot(store, page.id + 200, 1, ramp, ramp);
  }
  send(store, "misc_close", misc("tabs"));
  EXPECT_EQ(left(), std::pair(4UL, 2UL));
  dto_misc_t one = misc("charts");
  one.values[0].tag = static_cast<uint8_t>(mirn3::tag_t::uint64);
  one.values[0].value.uint64 = 109;
  send(store, "misc_close", one);
  EXPECT_EQ(left(), std::pair(3UL, 2UL));
  one.key = mirn3::ilc::name_hash("pages");
  one.values[0].value.uint64 = 10;
  send(store, "misc_close", one);
  EXPECT_EQ(left(), std::pair(1UL, 1UL));
  send(store, "misc_close", misc("charts"));
  EXPECT_EQ(left(), std::pair(0UL, 1UL));
  plot(store, 5, 1, ramp, ramp);
  send(store, "misc_close", misc("all"));
  EXPECT_EQ(left(), std::pair(0UL, 0UL));
}

TEST(Store, TheSameSeriesAgainReplacesItsCurve) {
  Store store;
  plot(store, 5, 1, ramp, ramp);
  plot(store, 5, 2, ramp, ramp);
  EXPECT_FALSE(store.state()->is_live);
  plot(store, 5, 1, {0, 1}, {7, 8});
  const auto chart = store.state()->chart(5);
  ASSERT_EQ(chart->series.size(), 2U);
  EXPECT_EQ(chart->series[0]->data->y()[1], 8);
  EXPECT_EQ(chart->series[0]->version, 2U);
  EXPECT_EQ(chart->series[1]->version, 1U);
  EXPECT_TRUE(store.state()->is_live);
}

TEST(Store, AGrowingBufferKeepsItsPyramid) {
  Store store;
  dto_chart_t record = chart_record(1, 1, std::vector<double>(3000), std::vector<double>(3000));
  double* x = const_cast<double*>(std::as_const(record.x).data());
  double* y = const_cast<double*>(std::as_const(record.y).data());
  for (size_t i = 0; i < 3000; ++i) {
    x[i] = static_cast<double>(i);
    y[i] = static_cast<double>(i * 7919 % 1009);
  }
  for (const size_t n : {1000, 1001, 2500, 3000}) {
    record.x.resize(n);
    record.y.resize(n);
    send(store, "chart2d_line", record);
    const auto data = store.state()->chart(1)->series[0]->data;
    if (n == 1001) continue;  // never looked at
    Extremes wanted;
    for (size_t i = 0; i < n; ++i) wanted.add(y[i]);
    EXPECT_TRUE(data->pyramid().ascends());
    EXPECT_EQ(data->pyramid().whole().hi, wanted.hi) << n;
    EXPECT_EQ(data->times().hi, static_cast<double>(n - 1));
  }
}

TEST(Store, SettingsOfChartsAndOfTheHost) {
  Store store;
  plot(store, 5, 1, ramp, ramp);
  dto_chart_set_chart_t limits;
  limits.id = 5;
  limits.lmax = 4;
  limits.fit = 'l';
  std::strcpy(limits.xlabel, "t");
  send(store, "chart_set", limits);
  send(store, "chart_set", dto_chart_set_chart_t{.id = 5, .rmin = -1});
  send(store, "chart_set", dto_chart_set_chart_t{.id = 77});
  const auto chart = store.state()->chart(5);
  EXPECT_EQ(chart->left.max, 4);
  EXPECT_FALSE(chart->left.min);
  EXPECT_EQ(chart->right.min, -1);
  EXPECT_EQ(chart->fit, 'l');
  EXPECT_EQ(chart->xlabel, "t");

  send(store, "misc_set", misc("tab", var_t::of(int32_t{3})));
  send(store, "misc_set", misc("timelimits", var_t::of(1.0), var_t::of(2.0)));
  send(store, "misc_set", misc("globaltime", var_t::of(1.5)));
  send(store, "misc_set", misc("timeformat", var_t::of(mirn3::ilc::name_hash("hms"))));
  send(store, "misc_set", misc("timeformat", var_t::of(uint32_t{12345})));
  send(store, "misc_bookmark", misc("bookmark", var_t::of(3.0), var_t::of(4.0)));
  send(store, "app_info", misc("theme.live", var_t::of(int32_t{0})));
  auto state = store.state();
  EXPECT_EQ(state->tab, 3);
  EXPECT_EQ(state->time_limits->hi, 2);
  EXPECT_EQ(state->global_time, 1.5);
  EXPECT_EQ(state->time_format, "hms");
  EXPECT_EQ(state->bookmarks[0].hi, 4);
  EXPECT_EQ(state->light_live, false);
  send(store, "misc_reset", misc("all"));
  state = store.state();
  EXPECT_TRUE(state->bookmarks.empty() && !state->time_limits && state->time_format == "auto");
  EXPECT_EQ(state->charts.size(), 1U);
}

TEST(Store, AnnotationsOfOneChartOrOfAll) {
  Store store;
  plot(store, 5, 1, ramp, ramp);
  dto_obj2d_t object;
  object.chart = 5;
  object.xcenter = 2;
  object.diameter = 3;
  send(store, "obj2d_circle", object);
  object.chart = 0;
  std::memset(object.text, 'x', sizeof object.text);  // without an end
  send(store, "obj2d_mark", object);
  object.chart = 99;
  send(store, "obj2d_text", object);
  send(store, "obj2d_legend", dto_obj2d_t{.chart = 5, .visible = 0});
  EXPECT_EQ(store.state()->chart(5)->objects.at(0).x, 2);
  EXPECT_FALSE(store.state()->chart(5)->legend_visible);
  ASSERT_EQ(store.state()->objects.size(), 1U);
  EXPECT_EQ(store.state()->objects[0].text.size(), sizeof object.text);
}

TEST(Store, PinnedSamplesAreCountedOnceAndFreed) {
  Store store;
  dto_chart_t record = chart_record(1, 1, ramp, ramp);
  send(store, "chart2d_line", record);
  record.id = 2;
  send(store, "chart2d_fft", record);
  EXPECT_EQ(store.state()->pinned, 64U);
  EXPECT_GT(record.x.holders(), 1);
  const uint64_t bank = mirn3::mem::memory_bank.exchange(100);
  plot(store, 3, 1, ramp, ramp);
  plot(store, 4, 1, ramp, ramp);
  mirn3::mem::memory_bank = bank;
  ASSERT_EQ(store.state()->notices.size(), 1U);
  EXPECT_NE(store.state()->notices[0].text.find("kvalo.close"), std::string::npos);
  send(store, "misc_close", misc("charts", var_t{}));
  EXPECT_EQ(store.state()->pinned, 0U);
  EXPECT_EQ(record.x.holders(), 1);
}

TEST(Store, RequestsReachTheHost) {
  Store store;
  std::vector<Request> asked;
  int changes = 0;
  store.on_request = [&](const Request& request) { asked.push_back(request); };
  store.on_change = [&] { ++changes; };
  dto_chart_save_t save;
  save.id = 5;
  std::strcpy(save.path, "/x/y.png");
  std::strcpy(save.size, "800x600");
  const mirn3::ilc::handler_t handler = store.handler();
  handler(std::make_shared<mirn3::ilc::msgdata_t>(
      mirn3::ilc::msgdata_t{mirn3::ilc::name_hash("chart_save"), std::make_shared<dto_chart_save_t>(save)}));
  send(store, "app_exit", dto_exit_t{});
  send(store, "app_error", dto_error_t{"it failed"});
  store.apply({12345, nullptr});
  store.apply({mirn3::ilc::name_hash("chart_set"), nullptr});
  ASSERT_EQ(asked.size(), 3U);
  EXPECT_TRUE(asked[0].type == Request::Type::save && asked[0].text == "/x/y.png" &&
              asked[0].size == "800x600");
  EXPECT_EQ(asked[1].type, Request::Type::exit);
  EXPECT_EQ(asked[2].text, "it failed");
  EXPECT_EQ(changes, 1);
  EXPECT_TRUE(store.state()->notices.at(0).is_error);
}

TEST(Store, AChildProcessFindsItUnlocked) {
  Store store;
  std::atomic<bool> is_done{false};
  std::thread reader([&] {
    while (!is_done) store.state();
  });
  for (int i = 0; i < 20; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(20);
      plot(store, 1, 1, ramp, ramp);
      ::_exit(store.state()->charts.size() == 1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  is_done = true;
  reader.join();
}

}  // namespace
