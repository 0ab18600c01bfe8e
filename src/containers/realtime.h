// What a Container does with a live source: starting, reading and stopping it.
#pragma once

#include <cstdint>

#include "containers/container.h"

namespace mirn2 {

// Gives every live variable an empty receive buffer that its script object shows.
void prepare_receiving(Container& container);

// Start and stop every live source of the container; one without a live source is left alone. All three throw
// what the plug-in reports and release the interpreter lock while the plug-in works.
void start_receiving(const Container& container);
void stop_receiving(const Container& container);

// Takes over what was received since the last read, for every variable, each of which then holds its last
// max(samples, delivered) samples. A variable that fails does not keep the others from being read; the
// first failure is thrown in the end.
void read_received(const Container& container, uint64_t samples);

}  // namespace mirn2
