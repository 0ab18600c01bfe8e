// What a Container does with a live source: starting, reading and stopping it.
#pragma once

#include <cstdint>

#include "containers/container.h"

namespace mirn2 {

// Gives every live variable an empty receive buffer that its script object shows.
void prepare_receiving(Container& container);

// Start and stop every live source of the container, if it has any. These two and read_received throw what
// the plug-in reports, and release the interpreter lock while the plug-in works.
void start_receiving(const Container& container);
void stop_receiving(const Container& container);

// Takes what every variable received since the last read; each then holds its last max(samples, delivered)
// samples. If a variable fails the others are still read, and the first failure is thrown at the end.
void read_received(const Container& container, uint64_t samples);

}  // namespace mirn2
