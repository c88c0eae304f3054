// What this host calls itself towards other hosts.
#pragma once

#include <string>

namespace oculora {

// The machine's name; empty when it has none.
std::string HostName();

}  // namespace oculora
