// The table of exceptions for what is wrong with a model.
#include "models/meta_code.h"

#include "blocks/plexo.h"
#include "objects/frame.h"

namespace mirn2 {

namespace {

struct Meaning {
  int code;
  PyObject** type;
  const char* text;
};

const Meaning meanings[] = {
    {plexo::algebraic_loop, &PyExc_Exception, "Algebraic loop detected"},
    {plexo::cast_not_linked, &PyExc_Exception, "Disconnected 'cast' block"},
    {plexo::from_without_goto, &PyExc_Exception, "Disconnected 'from' block"},
    {plexo::goto_not_linked, &PyExc_Exception, "Disconnected 'goto' block"},
    {plexo::port_not_linked, &PyExc_Exception, "Disconnected port"},
    {plexo::target_taken, &PyExc_ValueError, "Invalid 'target' value: it's used by another block"},
    {plexo::sizes_differ, &PyExc_ValueError, "Dimensions mismatch"},
    {plexo::too_many_inputs, &PyExc_ValueError, "Inports count must be equal to or less than 8"},
    {plexo::bad_value, &PyExc_ValueError, "Invalid properties value"},
    {plexo::expression_no_number, &PyExc_ValueError, "Invalid Python expression (type-cast error)"},
    {plexo::expression_failed, &PyExc_RuntimeError, "Invalid Python expression (evaluation error)"},
    {plexo::bad_period, &PyExc_ValueError, "Sampling period must be greater than zero"},
    {plexo::bad_times, &PyExc_ValueError, "Initial time must be less than final time"},
};

}  // namespace

void require_good(int code) {
  if (code == plexo::good) return;
  for (const Meaning& meaning : meanings) {
    if (meaning.code == code) throw script_error(*meaning.type, meaning.text);
  }
  fail(PyExc_Exception, "Unknown error during meta-processing");
}

}  // namespace mirn2
