// Texts in records: bounded copies into the fixed character fields that hosts read.
#pragma once

#include <Python.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "objects/frame.h"

namespace mirn2::hostlink {

// Copies the text and zeros after it. Throws ValueError "The {argument} must be shorter than {N} bytes
// ({given} given)" when there is no room for a terminating zero.
template <size_t N>
void put_text(char (&field)[N], std::string_view text, std::string_view argument) {
  if (text.size() >= N) {
    fail(PyExc_ValueError, "The {:s} must be shorter than {:d} bytes ({:d} given)", argument, N, text.size());
  }
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), text.size());
}

// For a text whose cut is documented: copies its first `most` bytes and zeros after them. With `most` = N a
// text that is cut has no terminating zero.
template <size_t N>
void put_cut_text(char (&field)[N], std::string_view text, size_t most = N) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), std::min({text.size(), most, N}));
}

}  // namespace mirn2::hostlink
