// Start-up and teardown: the process-wide objects of the module and their ties to the runtime.
#pragma once

namespace mirn2 {

// Creates the registry, the archive table and the host channel, ties the memory budget to the
// registry, and starts the runtime in a process without a host. Does nothing when it was done before.
void start_up();

// The counterpart: ends the runtime in a process without a host, then destroys the three objects.
void tear_down() noexcept;

}  // namespace mirn2
