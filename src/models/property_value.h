// From what a script gives for a block's property to what the block-model library takes.
#pragma once

#include <Python.h>

#include <string_view>

#include "blocks/properties.h"

namespace mirn2 {

// A number, a text (an expression), a sequence of these, a sequence of such sequences, or a kvalo.TimeSeries,
// which is loaded and whose samples are shared. `name` is the argument in the texts of errors: TypeError for
// anything else. Throws also what loading throws.
plexo::value_t property_value(PyObject* object, std::string_view name);

}  // namespace mirn2
