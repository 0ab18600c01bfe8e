// From a checked diagram to a flat model: systems, their ports, goto and from dissolve into wires.
#pragma once

#include "blocks/diagram.h"
#include "blocks/flat.h"

namespace plexo {

// Fills `flat`; `sorts` also orders its cells by level and counts tiers and zones. Code 1, with the cycle in
// the text, when outputs depend on themselves within a sample.
Problem flatten(const Diagram& diagram, bool sorts, FlatModel& flat);

// Orders the cells by level, ties by id, and counts levels and independent parts. False, with the cells of a
// cycle in `loop`, when there is one.
bool sort_cells(FlatModel& flat, std::vector<uint32_t>& loop);

}  // namespace plexo
