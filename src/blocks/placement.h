// Hands the results of a run to the script, through the runtime's interpreter table.
#pragma once

#include <functional>

#include "blocks/plexo.h"
#include "blocks/recorder.h"

namespace plexo {

// Whether there is an interpreter with a module kvalo to make results of.
bool can_place();

// Sets __main__.mainsys to a kvalo.Result that holds a kvalo.TimeSeries for each signal and a Result for each
// system within. Takes the columns' memory. Calls `placed`, unless it is empty, while
// it still has the interpreter lock. False, with the interpreter's error set, if that fails.
bool place(const Results& results, const Times& times, Recorder& recorder,
           const std::function<void()>& placed);

// Whether the user has asked for an end (Ctrl+C): the interpreter's error is set then.
bool is_interrupted();

}  // namespace plexo
