// How the series of a live source take in what is received.
//
// A series holds the latest samples: as many as its window, or all of one delivery that is larger, so that
// nothing is lost to a script that looks after every read. Samples are appended in a buffer of twice that
// size, which is exchanged when it is full: memory stays constant, and holders of earlier samples
// keep them unchanged.
#pragma once

#include <vector>

#include "objects/ref.h"
#include "objects/series_record.h"

namespace mirn2 {

// Appends what was delivered, with the record's gain and offset, keeps the last max(window, delivered)
// samples and lets every script object that shows the record show them. A buffer that a view (memoryview,
// NumPy) looks into is left to the view. Objects that are replaced go to `dropped`, for the caller to release
// later. Call with the interpreter lock held; throws python_error and std::bad_alloc with the record
// unchanged.
void receive(TimeSeries& record, const LoadedSamples& delivered, uint64_t window, std::vector<Ref>& dropped);

}  // namespace mirn2
