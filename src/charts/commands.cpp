// Module functions that ask the host for charts: each is a row, and what it fills into the record.
#include "charts/families.h"
#include "charts/series_chart.h"
#include "hostlink/send.h"
#include "hostlink/text_field.h"
#include "objects/mesh.h"
#include "runtime/exc.h"
#include "runtime/num.h"
#include "runtime/str.h"
#include "runtime/sys.h"

namespace mirn2::fn {

namespace {

using Id = unsigned long long;
using mirn3::ilc::side_t;
using mirn3::ilc::style_t;

bool is(std::string_view text, std::string_view lower) { return mirn3::str::to_lower(text) == lower; }

uint64_t side_of(std::string_view text) {
  return static_cast<uint64_t>(is(text, "left") ? side_t::left : side_t::right);
}

int32_t line_style_of(std::string_view text) {
  const style_t style = is(text, "bool")   ? style_t::boolean
                        : is(text, "dots") ? style_t::dots
                                           : style_t::line;
  return static_cast<int32_t>(style);
}

// ---- charts of series ----

// A chart without options.
template <Name message>
uint64_t plain_chart(Id id, PyObject* object, const char* name) {
  return send_chart(message.text, {.id = id}, {object, name});
}

// A chart whose series goes by one of two axes.
template <Name message>
uint64_t sided_chart(Id id, PyObject* object, const char* name, const char* side) {
  return send_chart(message.text, {.id = id, .side = side_of(side)}, {object, name});
}

uint64_t plot(Id id, PyObject* object, const char* name, const char* side, const char* style) {
  return send_chart("chart2d_line", {.id = id, .side = side_of(side), .style = line_style_of(style)},
                    {object, name});
}

uint64_t hist(Id id, PyObject* object, const char* name, const char* type, int bins) {
  const style_t style = is(type, "bar") ? style_t::bar : style_t::outline;
  return send_chart("chart2d_hist", {.id = id, .param = bins, .style = static_cast<int32_t>(style)},
                    {object, name});
}

uint64_t spectrogram(Id id, PyObject* object, const char* name, int nfft, double overlap) {
  return send_chart("chart2d_spectro", {.id = id, .param = nfft, .vmin = overlap}, {object, name});
}

uint64_t synoptic(Id id, PyObject* object, const char* name, int x, int y, int width,
                  std::optional<double> min, std::optional<double> max, int red, int green, int blue) {
  constexpr double not_set = 1e100;
  return send_chart("chart1d_synoptic",
                    {.id = id,
                     .param = x,
                     .param2 = y,
                     .width = width,
                     .red = red,
                     .green = green,
                     .blue = blue,
                     .vmin = min.value_or(not_set),
                     .vmax = max.value_or(not_set)},
                    {object, name});
}

void scatterplot(Items) {
  fail(PyExc_NotImplementedError, "This function has been deprecated and removed. Use kvalo.plot() instead");
}

// ---- surfaces ----

const Column& mesh_axis(PyObject* axis) {
  const ArrayObject* array = as_array(axis);
  if (array == nullptr || array->column->empty()) {
    fail(PyExc_ValueError, "The kvalo.Mesh object has no data; give it xdata, ydata and zdata");
  }
  return *array->column;
}

uint64_t mesh(PyObject* object) {
  if (!PyObject_TypeCheck(object, &MeshType)) {
    fail(PyExc_TypeError, "Argument must be a kvalo.Mesh object");
  }
  const auto* surface = reinterpret_cast<const MeshObject*>(object);
  const auto chart = std::make_shared<dto_chart_t>();
  chart->name = name_in_script(object);
  chart->flags = surface->flags;
  chart->series_id = surface->id64;
  chart->x = mesh_axis(surface->xdata).snapshot();
  chart->y = mesh_axis(surface->ydata).snapshot();
  chart->z = mesh_axis(surface->zdata).snapshot();
  chart->id = mirn3::num::create_id();
  const uint64_t id = chart->id;
  hostlink::send_record("chart3d_mesh", chart);
  return id;
}

// ---- what is done with a chart ----

using Setting = std::optional<double>;

void set_chart(Id id, Setting lmax, Setting lmin, Setting rmax, Setting rmin, Setting ltick, Setting rtick,
               const char* fit, const char* xlabel) {
  hostlink::send<dto_chart_set_chart_t>({"chart_set"}, [&](dto_chart_set_chart_t& record) {
    record.id = id;
    record.lmax = lmax.value_or(record.lmax);
    record.lmin = lmin.value_or(record.lmin);
    record.rmax = rmax.value_or(record.rmax);
    record.rmin = rmin.value_or(record.rmin);
    record.ltick = ltick.value_or(record.ltick);
    record.rtick = rtick.value_or(record.rtick);
    if (*fit != '\0') record.fit = mirn3::str::lower(*fit);
    hostlink::put_cut_text(record.xlabel, xlabel, sizeof record.xlabel - 1);
  });
}

void save(const char* path, Id id, const char* size) {
  try {
    mirn3::sys::write_check(path);
  } catch (const mirn3::exc::error_t& refused) {
    fail(PyExc_PermissionError, "{:s}", refused.what());
  }
  hostlink::send<dto_chart_save_t>({"chart_save"}, [&](dto_chart_save_t& record) {
    record.id = id;
    hostlink::put_text(record.path, path, "path");
    hostlink::put_text(record.size, size, "size");
  });
}

}  // namespace

Rows chart_rows() {
  static const PyMethodDef rows[] = {
      row<"save", "(path, id=0, size='')", "s|Ks", "Save chart to file", save>(),
      row<"set_chart",
          "(id, lmax=..., lmin=..., rmax=..., rmin=..., ltick=..., rtick=..., fit='0', xlabel='')",
          "K|ddddddss", "Set chart parameters", set_chart>(),
      row<"synoptic",
          "(id=0, obj=..., name=..., x=-1, y=-1, width=-1, min=..., max=..., red=-1, green=-1, blue=-1)",
          "|KOsiiiddiii", "Create an empty chart for displaying synoptic objects", synoptic>(),
      row<"bode", "(id=0, obj=..., name=...)", "|KOs",
          "Plot the Bode Diagram from input and output kvalo.TimeSeries objects",
          plain_chart<"chart2d_bode">>(),
      row<"boolplot", "(id=0, obj=..., name=...)", "|KOs",
          "Plot a kvalo.TimeSeries object interpreting its data as boolean", plain_chart<"chart2d_bool">>(),
      row<"crossplot", "(id=0, obj=..., name=..., side='left')", "|KOss",
          "Plot a kvalo.TimeSeries object against another one", sided_chart<"chart2d_cross">>(),
      row<"scatterplot", "(*args, **kwargs)", "*",
          "Plot each sample of a kvalo.TimeSeries object as a disconnected dot", scatterplot>(),
      row<"fft", "(id=0, obj=..., name=..., side='left')", "|KOss",
          "Plot the Fast Fourier Transform of a kvalo.TimeSeries object", sided_chart<"chart2d_fft">>(),
      row<"heatmap", "(id=0, obj=..., name=...)", "|KOs", "Plot heatmap between two kvalo.TimeSeries objects",
          plain_chart<"chart2d_heatmap">>(),
      row<"hist", "(id=0, obj=..., name=..., type='bar', nbins=8)", "|KOssi",
          "Plot the histogram of a kvalo.TimeSeries object", hist>(),
      row<"plot", "(id=0, obj=..., name=..., side='left', style='line')", "|KOsss",
          "Plot kvalo.TimeSeries against time", plot>(),
      row<"spectrogram", "(id=0, obj=..., name=..., nfft=256, overlap=0.1)", "|KOsid",
          "Plot the spectrogram of a kvalo.TimeSeries", spectrogram>(),
      row<"xcorrplot", "(id=0, obj=..., name=..., side='left')", "|KOss",
          "Plot the cross-correlation between two kvalo.TimeSeries objects", sided_chart<"chart2d_xcorr">>(),
      row<"plot3d", "(id=0, obj=..., name=...)", "|KOs", "Plot kvalo.TimeSeries in 3d projection",
          plain_chart<"chart3d_line">>(),
      row<"mesh", "(obj)", "O", "Plot the surface of a kvalo.Mesh object", mesh>(),
  };
  return rows;
}

}  // namespace mirn2::fn
