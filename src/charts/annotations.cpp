// Module functions: what stands on charts beside the data.
#include "charts/families.h"

namespace mirn2::fn {

Rows annotation_rows() {
  static const PyMethodDef rows[] = {
      row<"circle", "(chart, xcenter, ycenter, diameter, red=-1, green=-1, blue=-1)", "Kddd|iii",
          "Create a circle in a chart", pending, Frame{.online = "obj2d_circle"}>(),
      row<"datatip", "(chart, name, x, red=-1, green=-1, blue=-1)", "Ksd|iii", "Create a datatip in a chart",
          pending, Frame{.online = "obj2d_datatip"}>(),
      row<"flag", "(chart=0, x=..., y=..., text='label', red=-1, green=-1, blue=-1)", "|Kddsiii",
          "Create a flag in all charts", pending, Frame{.online = "obj2d_flag"}>(),
      row<"mark", "(x, width, text, red=-1, green=-1, blue=-1)", "dds|iii", "Create a mark in all charts",
          pending, Frame{.online = "obj2d_mark"}>(),
      row<"legend", "(chart, x=0.0, y=0.0, visible=1, full=0)", "K|ddii", "Setup the legend in a chart",
          pending, Frame{.online = "obj2d_legend"}>(),
      row<"rectangle", "(chart, xcenter, ycenter, height, width, red=-1, green=-1, blue=-1)", "Kdddd|iii",
          "Create a rectangle in a chart", pending, Frame{.online = "obj2d_rectangle"}>(),
      row<"text", "(chart, x, y, text, red=-1, green=-1, blue=-1)", "Kdds|iii", "Create a text in a chart",
          pending, Frame{.online = "obj2d_text"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
