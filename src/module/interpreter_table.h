// Hands the interpreter's functions to the runtime, which does not link the interpreter.
#pragma once

namespace mirn2 {

// Fills mirn3::python::table unless it is filled already, and sets the runtime's wrapper up.
void fill_interpreter_table();

}  // namespace mirn2
