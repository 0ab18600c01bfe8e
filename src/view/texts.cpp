// Writes state, values and statistics as JSON.
#include "view/texts.h"

#include <algorithm>
#include <cmath>

#include "view/json.h"

namespace kvalo_view {

namespace {

using mirn3::ilc::name_hash;

void add(Json& out, std::string_view name, const std::optional<double>& value) {
  out.known(name, value ? *value : View::nan);
}

void add_theme(Json& out, std::string_view name, const std::optional<bool>& is_light) {
  out.key(name);
  if (is_light) {
    out.value(*is_light ? "light" : "dark");
  } else {
    out.null();
  }
}

void add_pair(Json& out, Range range) {
  out.open('[');
  out.value(range.lo);
  out.value(range.hi);
  out.close(']');
}

void add_color(Json& out, const Color& color) {
  out.key("color");
  if (std::any_of(color.begin(), color.end(), [](int32_t part) { return part < 0; })) {
    out.null();
    return;
  }
  out.open('[');
  for (const int32_t part : color) out.value(std::min(part, 255));
  out.close(']');
}

void add_axis(Json& out, std::string_view name, const Axis& axis) {
  out.key(name).open('{');
  add(out, "min", axis.min);
  add(out, "max", axis.max);
  add(out, "tick", axis.tick);
  out.close('}');
}

const Series* named(const Chart* chart, const std::string& name) {
  if (chart == nullptr) return nullptr;
  for (const auto& series : chart->series) {
    if (series->name == name || series->full_name == name) return series.get();
  }
  return nullptr;
}

void add_annotation(Json& out, const Annotation& object, const Chart* chart) {
  out.open('{');
  switch (object.type) {
    case name_hash("obj2d_circle"):
      out.member("type", "circle")
          .known("x", object.x)
          .known("y", object.y)
          .known("diameter", object.diameter);
      break;
    case name_hash("obj2d_rectangle"):
      out.member("type", "rectangle").known("x", object.x).known("y", object.y);
      out.known("width", object.width).known("height", object.height);
      break;
    case name_hash("obj2d_text"):
      out.member("type", "text").known("x", object.x).known("y", object.y).member("text", object.text);
      break;
    case name_hash("obj2d_flag"):
      out.member("type", "flag").known("x", object.x).known("y", object.y).member("text", object.text);
      break;
    case name_hash("obj2d_mark"):
      out.member("type", "mark")
          .known("x", object.x)
          .known("width", object.width)
          .member("text", object.text);
      break;
    default: {
      out.member("type", "datatip").known("x", object.x).member("text", object.text).key("series");
      const Series* series = named(chart, object.text);
      double y = View::nan;
      if (series == nullptr) {
        out.null();
      } else {
        out.value(series->key);
        const Data& data = *series->data;
        if (data.is_ready() && data.pyramid().ascends()) {
          const size_t after = upper_index(data.x(), object.x, data.size() / 2);
          if (after > 0) y = data.y()[after - 1];
        }
      }
      out.known("y", y);
    }
  }
  add_color(out, object.color);
  out.close('}');
}

void add_annotations(Json& out, const std::vector<Annotation>& objects, const Chart* chart) {
  out.key("objects").open('[');
  for (const Annotation& object : objects) add_annotation(out, object, chart);
  out.close(']');
}

double unset(double value) { return value == 1e100 ? View::nan : value; }
double unset(int32_t value) { return value == -1 ? View::nan : value; }

const char* style_of(const Series& series) {
  static constexpr const char* names[] = {"line", "bool", "dots", "bar", "outline"};
  const auto style = static_cast<size_t>(series.style);
  return names[style < std::size(names) ? style : 0];
}

void add_series(Json& out, const Chart& chart, const Series& series) {
  const Data& data = *series.data;
  out.open('{').member("key", series.key).member("id", std::to_string(series.id)).member("name", series.name);
  out.member("full_name", series.full_name).member("side", series.is_right ? "right" : "left");
  out.member("style", style_of(series)).member("n", uint64_t{data.size()}).member("version", series.version);
  out.member("hold", chart.kind == Kind::boolean || series.style == mirn3::ilc::style_t::boolean);
  out.key("ascending");
  if (data.is_ready()) {
    const Extremes all = data.pyramid().whole();
    out.value(data.pyramid().ascends());
    out.known("t0", data.times().lo).known("t1", data.times().hi);
    out.known("ymin", all.empty() ? View::nan : all.lo).known("ymax", all.empty() ? View::nan : all.hi);
  } else {
    out.null();
    for (const char* name : {"t0", "t1", "ymin", "ymax"}) out.known(name, View::nan);
  }
  if (chart.kind == Kind::synoptic) {
    out.key("object").open('{').known("x", unset(series.param)).known("y", unset(series.param2));
    out.known("width", unset(series.width)).known("min", unset(series.vmin)).known("max", unset(series.vmax));
    add_color(out, series.color);
    out.close('}');
  }
  out.close('}');
}

const char* unit_of(Kind kind) {
  if (has_time_axis(kind) || kind == Kind::xcorr) return "s";
  return kind == Kind::fft || kind == Kind::bode ? "Hz" : "";
}

void add_chart(Json& out, const Chart& chart, const Views& views) {
  out.open('{').member("key", chart.key).member("id", std::to_string(chart.id));
  out.member("kind", name_of(chart.kind))
      .member("page", std::to_string(chart.page))
      .member("xlabel", chart.xlabel);
  add_axis(out, "left", chart.left);
  add_axis(out, "right", chart.right);
  out.member("fit", std::string_view(&chart.fit, 1));
  out.key("legend").open('{').member("visible", chart.legend_visible).member("full", chart.legend_full);
  out.known("x", chart.legend_x).known("y", chart.legend_y).close('}');
  const std::optional<Range> x = views.x_range(chart);
  out.key("x").open('{').member("unit", unit_of(chart.kind)).known("min", x ? x->lo : View::nan);
  out.known("max", x ? x->hi : View::nan).member("time", has_time_axis(chart.kind)).close('}');
  out.member("busy", std::any_of(chart.series.begin(), chart.series.end(),
                                 [](const auto& series) { return !series->data->is_ready(); }));
  const std::string error = views.error(chart);
  out.key("error");
  if (error.empty()) {
    out.null();
  } else {
    out.value(error);
  }
  out.key("series").open('[');
  for (const auto& series : chart.series) add_series(out, chart, *series);
  out.close(']');
  add_annotations(out, chart.objects, &chart);
  out.close('}');
}

void add_point(Json& out, std::string_view x, std::string_view y, Point point) {
  out.known(x, point.x).known(y, point.y);
}

}  // namespace

std::string state_text(const State& state, const Views& views, uint64_t version, const StateText& about) {
  Json out;
  out.open('{').member("type", "state").member("version", version).member("title", about.title);
  out.member("pictures", about.pictures).member("alive", true);
  add_theme(out, "theme", state.light);
  add_theme(out, "theme_live", state.light_live);
  out.member("live", state.is_live).member("tab", state.tab).member("timeformat", state.time_format);
  out.key("timelimits");
  if (state.time_limits) {
    add_pair(out, *state.time_limits);
  } else {
    out.null();
  }
  add(out, "globaltime", state.global_time);
  out.key("bookmarks").open('[');
  for (const Range& bookmark : state.bookmarks) add_pair(out, bookmark);
  out.close(']').member("page", std::to_string(state.page)).key("pages").open('[');
  for (const Page& page : state.pages) {
    out.open('{').member("id", std::to_string(page.id)).member("name", page.name).member("cols", page.cols);
    out.key("charts").open('[');
    for (const auto& chart : state.charts) {
      if (chart->page == page.id) out.value(chart->key);
    }
    out.close(']').close('}');
  }
  out.close(']');
  add_annotations(out, state.objects, nullptr);
  out.key("notices").open('[');
  for (const Notice& notice : state.notices) {
    out.open('{')
        .member("level", notice.is_error ? "error" : "warning")
        .member("text", notice.text)
        .close('}');
  }
  out.close(']').key("charts").open('[');
  for (const auto& chart : state.charts) add_chart(out, *chart, views);
  out.close(']').close('}');
  return out.text();
}

std::string values_text(const Chart& chart, uint32_t seq, double t, const std::vector<ValueAt>& values) {
  Json out;
  out.open('{').member("type", "values").member("chart", chart.key).member("seq", seq).known("t", t);
  out.key("values").open('[');
  for (const ValueAt& value : values) {
    out.open('{').member("series", value.series);
    add_point(out, "x", "y", value.held);
    add_point(out, "near_x", "near_y", value.near);
    out.close('}');
  }
  out.close(']').close('}');
  return out.text();
}

std::string statistics_text(const Chart& chart, uint32_t seq, Range times,
                            const std::vector<Statistics>& values) {
  Json out;
  out.open('{').member("type", "stats").member("chart", chart.key).member("seq", seq);
  out.known("a", times.lo).known("b", times.hi).key("values").open('[');
  for (const Statistics& s : values) {
    out.open('{').member("series", s.series).member("n", uint64_t{s.n}).member("finite", uint64_t{s.finite});
    add_point(out, "min_x", "min", s.least);
    add_point(out, "max_x", "max", s.greatest);
    out.known("mean", s.mean).known("std", s.deviation).known("rms", s.rms);
    out.known("first", s.first.y).known("last", s.last.y);
    const double seconds = s.last.x - s.first.x;
    out.known("slope", seconds > 0 ? (s.last.y - s.first.y) / seconds : View::nan).close('}');
  }
  out.close(']').close('}');
  return out.text();
}

}  // namespace kvalo_view
