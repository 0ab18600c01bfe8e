// Module functions for what stands on charts beside the data: each fills one record and sends it.
#include <cmath>
#include <limits>

#include "charts/families.h"
#include "hostlink/send.h"
#include "hostlink/text_field.h"
#include "kvalo/records.h"

namespace mirn2::fn {

namespace {

using Id = unsigned long long;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

struct Colour {
  int red, green, blue;
};

// The row has refused the call already where a live source runs.
void send_annotation(const char* message, dto_obj2d_t record, Colour colour, const char* text,
                     std::string_view argument) {
  record.red = colour.red;
  record.green = colour.green;
  record.blue = colour.blue;
  hostlink::put_text(record.text, text, argument);
  hostlink::send_record(message, std::make_shared<dto_obj2d_t>(record));
}

void circle(Id chart, double xcenter, double ycenter, double diameter, int red, int green, int blue) {
  send_annotation("obj2d_circle",
                  {.chart = chart, .xcenter = xcenter, .ycenter = ycenter, .diameter = diameter},
                  {red, green, blue}, "", "text");
}

void datatip(Id chart, const char* name, double x, int red, int green, int blue) {
  send_annotation("obj2d_datatip", {.chart = chart, .x = x}, {red, green, blue}, name, "name");
}

void flag(Id chart, std::optional<double> x, std::optional<double> y, const char* text, int red, int green,
          int blue) {
  const dto_obj2d_t record{.chart = chart, .x = x.value_or(nan), .y = y.value_or(nan)};
  if (std::isnan(record.x) == std::isnan(record.y)) {
    fail(PyExc_ValueError, "Must provide value for either 'x' or 'y'");
  }
  if (std::isnan(record.x) && chart == 0) {
    fail(PyExc_ValueError, "Must provide chart when creating horizontal flags");
  }
  send_annotation("obj2d_flag", record, {red, green, blue}, text, "text");
}

void mark(double x, double width, const char* text, int red, int green, int blue) {
  send_annotation("obj2d_mark", {.x = x, .width = width}, {red, green, blue}, text, "text");
}

void legend(Id chart, double x, double y, int visible, int full) {
  send_annotation("obj2d_legend", {.chart = chart, .x = x, .y = y, .visible = visible, .full = full},
                  {-1, -1, -1}, "", "text");
}

void rectangle(Id chart, double xcenter, double ycenter, double height, double width, int red, int green,
               int blue) {
  send_annotation("obj2d_rectangle",
                  {.chart = chart, .xcenter = xcenter, .ycenter = ycenter, .height = height, .width = width},
                  {red, green, blue}, "", "text");
}

void text(Id chart, double x, double y, const char* shown, int red, int green, int blue) {
  send_annotation("obj2d_text", {.chart = chart, .x = x, .y = y}, {red, green, blue}, shown, "text");
}

}  // namespace

Rows annotation_rows() {
  static const PyMethodDef rows[] = {
      row<"circle", "(chart, xcenter, ycenter, diameter, red=-1, green=-1, blue=-1)", "Kddd|iii",
          "Create a circle in a chart", circle, Frame{.online = "obj2d_circle"}>(),
      row<"datatip", "(chart, name, x, red=-1, green=-1, blue=-1)", "Ksd|iii", "Create a datatip in a chart",
          datatip, Frame{.online = "obj2d_datatip"}>(),
      row<"flag", "(chart=0, x=..., y=..., text='label', red=-1, green=-1, blue=-1)", "|Kddsiii",
          "Create a flag in all charts", flag, Frame{.online = "obj2d_flag"}>(),
      row<"mark", "(x, width, text, red=-1, green=-1, blue=-1)", "dds|iii", "Create a mark in all charts",
          mark, Frame{.online = "obj2d_mark"}>(),
      row<"legend", "(chart, x=0.0, y=0.0, visible=1, full=0)", "K|ddii", "Setup the legend in a chart",
          legend, Frame{.online = "obj2d_legend"}>(),
      row<"rectangle", "(chart, xcenter, ycenter, height, width, red=-1, green=-1, blue=-1)", "Kdddd|iii",
          "Create a rectangle in a chart", rectangle, Frame{.online = "obj2d_rectangle"}>(),
      row<"text", "(chart, x, y, text, red=-1, green=-1, blue=-1)", "Kdds|iii", "Create a text in a chart",
          text, Frame{.online = "obj2d_text"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
