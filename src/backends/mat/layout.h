// Where the numbers of a MAT file are: versions 4, 5, 6 and 7.
//
// A version 4 file is a row of matrices, each after a header of 20 bytes. Versions 5 to 7 are a header of
// 128 bytes and a row of elements, each after a tag (type, length); since version 7 elements may be
// compressed one by one. Structures nest whole elements. Both byte orders occur. Only headers are looked at
// here.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "backends/mat/stream.h"
#include "backends/samples.h"

namespace mirn2::rd::mat {

// Numbers one after the other, column by column.
struct Numbers {
  samples::Number number;
  size_t element = 0;   // which top-level element holds them
  uint64_t offset = 0;  // in its stream
};

struct Array {
  std::string name;
  uint64_t rows = 0, columns = 0;
  std::vector<Numbers> parts;   // one, or the real and the imaginary one
  std::vector<Array> children;  // of a structure
};

// A top-level element: a stretch of the file that is one stream.
struct Element {
  uint64_t offset = 0;
  uint64_t size = 0;
  bool compressed = false;
};

struct Layout {
  std::vector<Element> elements;
  std::vector<Array> arrays;
};

// Receives what is not offered, or damaged: the name, and the reason.
using LeaveOut = std::function<void(std::string_view name, std::string_view reason)>;

// Walks through the whole file. What precedes damage is kept. Throws mirn3::exc::error_t when the bytes
// are not a MAT file.
Layout find_arrays(Bytes file, const LeaveOut& leave_out);

std::unique_ptr<Stream> open_element(Bytes file, const Element& element);

}  // namespace mirn2::rd::mat
