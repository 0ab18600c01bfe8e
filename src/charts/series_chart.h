// Charts of series: how a series gets into a record, and the record to the host.
#pragma once

#include <Python.h>

#include <cstdint>

#include "kvalo/records.h"

namespace mirn2 {

// What every such command takes besides what is in the record: the series, or the name of one; null when not
// given. With neither the chart stays empty.
struct Shown {
  PyObject* object;
  const char* name;
};

// Fills the record with the series and sends it as a message of this name. The series is loaded, and the
// record shares its samples as they are now. Returns the chart's id: the record's, or a new one for 0. Throws
// TypeError for what is not a series, Exception "Could not find variable '...'" for a name that no series
// has, ValueError when x and y differ in size, and what loading throws.
uint64_t send_chart(const char* message, dto_chart_t&& record, const Shown& shown);

// The name of a variable of the calling script that holds the object, or "n/a".
std::string name_in_script(PyObject* object);

}  // namespace mirn2
