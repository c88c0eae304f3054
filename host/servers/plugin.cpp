// The table of the servers' plug-in.
#include "servers/servers.h"
#include "velm/apitable.h"

extern "C" __attribute__((visibility("default"))) const VELM::APITableRow* GetAPITable() {
  static const VELM::APITableRow table[] = {
      {"VELM.Oculora.Server", 1, "Describe", oculora::DescribeServer},
      {"VELM.Oculora.Server", 1, "List", oculora::ListServers},
      {"VELM.Oculora.Server", 1, "Pair", oculora::PairServer},
      {nullptr, 0, nullptr, nullptr},
  };
  return table;
}
