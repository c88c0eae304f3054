// Finding fields of an answer.
#include <strings.h>

#include "relay/http/http_table.h"

namespace oculora {

const std::string* HttpHead::Find(const char* name) const {
  for (const auto& [key, value] : fields) {
    if (strcasecmp(key.c_str(), name) == 0) return &value;
  }
  return nullptr;
}

}  // namespace oculora
