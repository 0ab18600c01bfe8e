// Loads every variable of a reader, as a session might: each, and again after the reader has forgotten what
// it learned. Failures must be the reader's own, and x and y must have the same length.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "readers/reader.h"
#include "runtime/exc.h"

[[noreturn]] inline void complain(const std::string& what) {
  std::fprintf(stderr, "Does not hold: %s\n", what.c_str());
  std::abort();
}

inline void gather(const std::vector<mirn2::rd::VariableNode>& nodes, std::vector<std::string>& names) {
  for (const auto& node : nodes) {
    names.push_back(node.full_name);
    gather(node.children, names);
  }
}

inline void load(mirn2::rd::Reader& reader, const std::string& name) {
  try {
    mirn2::rd::rto_t request{.tag_key = "fuzz", .name = name, .x = {}, .y = {}};
    reader.load(request);
    if (request.x.size() != request.y.size()) complain(name + ": x and y of one length");
  } catch (const mirn3::exc::error_t&) {
  } catch (const std::bad_alloc&) {
  }
}

inline void load_all(mirn2::rd::Reader& reader, size_t most_variables) {
  try {
    reader.scan();
  } catch (const mirn3::exc::error_t&) {
    return;
  }
  std::vector<std::string> names;
  gather(reader.variables(), names);
  if (names.size() > most_variables) names.resize(most_variables);
  for (const std::string& name : names) load(reader, name);
  reader.forget();
  for (const std::string& name : names) load(reader, name);
}
