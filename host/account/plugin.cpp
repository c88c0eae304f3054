// The table of the host's own plug-in.
#include "account/account.h"
#include "velm/apitable.h"

extern "C" __attribute__((visibility("default"))) const VELM::APITableRow* GetAPITable() {
  static const VELM::APITableRow table[] = {
      {"VELM.Oculora.Account", 1, "Login", oculora::Login},
      {"VELM.Oculora.Account", 1, "Logout", oculora::Logout},
      {"VELM.Oculora.Account", 1, "Whoami", oculora::Whoami},
      {"VELM.Oculora.Camera", 1, "List", oculora::ListCameras},
      {nullptr, 0, nullptr, nullptr},
  };
  return table;
}
