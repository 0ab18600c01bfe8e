// Columns: who sees a write, what a view pins, and when samples count as modified.
#include "objects/column.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <numeric>
#include <thread>
#include <vector>

namespace {

using mirn2::Column;
using mirn2::Samples;

Samples ramp(uint64_t n) {
  Samples samples;
  samples.resize_for_overwrite(n);
  std::iota(samples.data(), samples.data() + n, 1.0);
  return samples;
}

TEST(Column, AWriterLeavesTheBufferToEverybodyElse) {
  Samples kept_by_reader = ramp(4);
  Column record(kept_by_reader), result(record.snapshot());
  const Samples host = record.snapshot(), computation = result.hold();
  EXPECT_EQ(result.values().data(), kept_by_reader.data()) << "nothing is copied before a write";
  record.write()[0] = 9;
  result.write()[1] = 8;
  EXPECT_EQ(record[0], 9);
  EXPECT_EQ(result[0], 1);
  for (const Samples& other : {kept_by_reader, host, computation}) EXPECT_EQ(other[0] + other[1], 3);

  const double* own = record.values().data();
  record.write()[0] = 7;
  EXPECT_EQ(record.values().data(), own) << "a buffer of its own is written where it is";
}

TEST(Column, AViewedBufferStaysWhereItIsAndIsNotShared) {
  Column column(ramp(4));
  const Samples before = column.snapshot();
  Samples view = column.open_view();
  EXPECT_NE(view.data(), before.data()) << "others do not see what is written through a view";
  const Samples host = column.snapshot();
  view[0] = 5;
  column.write()[1] = 6;
  Samples computed = ramp(4);
  computed[2] = 7;
  column.overwrite(computed);
  EXPECT_EQ(column.values().data(), view.data());
  EXPECT_EQ(view[2], 7);
  EXPECT_EQ(before[0], 1);
  EXPECT_EQ(host[0], 1);

  column.replace(ramp(3), Column::Change::modifies);
  EXPECT_FALSE(column.is_viewed());
  EXPECT_EQ(view[2], 7);
  Column::close_view(view);
  view = column.open_view();
  Column::close_view(view);
  EXPECT_EQ(column.snapshot().data(), column.values().data()) << "without views, samples are shared again";
}

TEST(Column, ModificationsAreFoundHoweverTheyWereMade) {
  const struct {
    const char* what;
    bool viewed, modified;
    std::function<void(Column&, double*)> change;
  } cases[] = {
      {"nothing", true, false, [](Column&, double*) {}},
      {"written", false, true, [](Column& c, double*) { c.write(); }},
      {"repeated by loading", false, false,
       [](Column& c, double*) { c.write(Column::Change::repeated_by_loading)[0] = 5; }},
      {"all signs", true, true, [](Column&, double* v) { std::transform(v, v + 1008, v, std::negate{}); }},
      {"two samples swapped", true, true, [](Column&, double* v) { std::swap(v[0], v[1]); }},
      {"two far apart swapped", true, true, [](Column&, double* v) { std::swap(v[0], v[8]); }},
      {"one bit", true, true, [](Column&, double* v) { v[5] = std::nextafter(v[5], 1e9); }},
      {"written back", true, false, [](Column&, double* v) { v[0] += 1.0, v[0] -= 1.0; }},
      {"overwritten", false, true, [](Column& c, double*) { c.overwrite(ramp(1008)); }},
      {"overwritten in view", true, true, [](Column& c, double*) { c.overwrite(ramp(1008)); }},
      {"loaded again", false, false,
       [](Column& c, double*) { c.write(), c.replace(ramp(1008), Column::Change::repeated_by_loading); }},
  };
  for (const auto& c : cases) {
    Column column(ramp(1008));
    Samples view;
    if (c.viewed) view = column.open_view();
    c.change(column, view.data());
    EXPECT_EQ(column.is_modified(), c.modified) << c.what;
    if (!c.viewed) continue;
    Column::close_view(view);
    EXPECT_EQ(column.is_modified(), c.modified) << c.what << ", after the view";
  }
  for (size_t i = 0; i < 43; ++i) {
    Samples zeros;
    zeros.resize(43);
    Column column(std::move(zeros));
    Samples view = column.open_view();
    view[i] = -0.0;
    EXPECT_TRUE(column.is_modified()) << i;
    Column::close_view(view);
  }
}

TEST(Column, WhatIsKnownOfTheOrderEndsWithTheFirstWrite) {
  const auto known_after = [](const std::function<void(Column&)>& act) {
    Column column(ramp(4));
    column.hold().remember_ascending();
    act(column);
    return column.hold().is_known_ascending();
  };
  EXPECT_TRUE(known_after([](Column&) {}));
  EXPECT_FALSE(known_after([](Column& c) { c.write()[0] = 9; }));
  EXPECT_FALSE(known_after([](Column& c) {
    const Samples other = c.snapshot();
    c.write();
  }));
  EXPECT_FALSE(known_after([](Column& c) { c.overwrite(ramp(4)); }));
  EXPECT_FALSE(known_after([](Column& c) {
    Samples view = c.open_view();
    c.hold().remember_ascending();  // a view may write at any time
    Column::close_view(view);
  }));
  Column column(ramp(4));
  Samples prefix = column.snapshot();
  prefix.resize(2);
  prefix.remember_ascending();
  EXPECT_TRUE(prefix.is_known_ascending());
  EXPECT_FALSE(column.hold().is_known_ascending()) << "only a part of it was looked at";
}

// What the thread sanitizer looks at: a host reads its snapshot while the script goes on writing.
TEST(Column, AHostReadsItsSnapshotOnAnotherThreadWhileTheScriptWrites) {
  constexpr uint64_t n = 2000;
  Column column(ramp(n));
  for (int round = 0; round < 200; ++round) {
    const double first = column[0];
    Samples snapshot = column.snapshot();
    std::atomic<bool> agrees = false;
    std::thread host([&agrees, first, record = std::move(snapshot)] {
      agrees = std::accumulate(record.begin(), record.end(), 0.0) == n * first + n * (n - 1) / 2.0;
    });
    for (double& value : column.write()) value += 1;  // meets the host at work, or after it has let go
    host.join();
    EXPECT_TRUE(agrees);
    for (double& value : column.write()) value += 1;
  }
}

}  // namespace
