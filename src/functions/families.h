// The families of analysis functions: each source of this folder hands its rows to the module's table.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows angle_rows();
Rows array_rows();         // create_array...: vectors
Rows calculus_rows();      // derivative ... accumulate
Rows conditioning_rows();  // logic conditioning and value shaping of one series
Rows filter_rows();
Rows fit_rows();
Rows generator_rows();  // create_...: series and surfaces
Rows insight_rows();
Rows interpolation_rows();  // lerp
Rows lookup_rows();
Rows math_rows();      // elementary functions of every value
Rows sampling_rows();  // estimate_sampling_...
Rows spectral_rows();
Rows unit_rows();

}  // namespace mirn2::fn
