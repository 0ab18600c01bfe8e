// Script functions that set, reset and close what the host shows.
#include "module/display_functions.h"

namespace mirn2::fn {

Rows display_rows() {
  static const PyMethodDef rows[] = {
      row<"bookmark", "(tini, tend)", "dd", "Insert bookmark in the horizontal scrollbar", pending>(),
      row<"close", "(*args, **kwargs)", "*", "Close pages or charts", pending, Frame{.online = "close"}>(),
      row<"reset", "(*args, **kwargs)", "*", "Reset global parameters", pending, Frame{.online = "reset"}>(),
      row<"set", "(attribute, value, value2=..., /)", "*", "Set global parameters", pending,
          Frame{.online = "misc_set"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
