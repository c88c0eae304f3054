// What this host calls itself.
#include "servers/host_name.h"

#include <unistd.h>

#include <array>

namespace oculora {

std::string HostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace oculora
