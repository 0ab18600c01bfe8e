// How often a series is sampled, judged from the start of its time stamps.
#pragma once

#include <span>

namespace mirn2::kernels {

// Representative sample period in seconds: of the first nine intervals, sorted ascending with a tenth
// slot of plus infinity, the one at position 5; with fewer than ten samples the median of the
// intervals that exist (the upper one of two). At least two samples.
double representative_period(std::span<const double> t);

// What get_ts answers, in seconds: the last step when the first two stamps are equal; else the
// representative period from ten samples on, else the first step. At least two samples.
double sampling_period(std::span<const double> t);

}  // namespace mirn2::kernels
