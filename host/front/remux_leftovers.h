// Clears away what HLS remuxes that were killed have left behind.
#pragma once

namespace oculora {

// Removes pid files of remuxes that are dead, and their directories of slices. Remuxes that live, start or end just now
// are left alone, whoever runs them. What cannot be removed stays; the next Open of its camera tries again.
void RemoveRemuxLeftovers();

}  // namespace oculora
