// The sources of this folder that the library carries as texts; the build makes quoted.cpp out of them.
#pragma once

namespace plexo::quoted {

extern const char* const kernels_c;       // kernels.h
extern const char* const kernels_python;  // kernels.py
extern const char* const expressions;     // expressions.py

}  // namespace plexo::quoted
