// Loads an object that stands beside the host library and takes its table of functions.
#include "process/object_table.h"

#include <dlfcn.h>

#include <string>

#include "webapi/log_line.h"

namespace oculora {
namespace {

std::string PathBesideHost(const char* file) {
  Dl_info own{};
  if (dladdr(reinterpret_cast<const void*>(&LoadObjectTable), &own) == 0 || own.dli_fname == nullptr) return file;
  const std::string library = own.dli_fname;
  const std::size_t slash = library.rfind('/');
  return slash == std::string::npos ? file : library.substr(0, slash + 1) + file;
}

}  // namespace

const void* LoadObjectTable(const TableObject& object) {
  void* handle = dlopen(PathBesideHost(object.file).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    LogError(object.logUnit, __LINE__, __func__, "The %s object cannot be loaded: %s\n", object.name, dlerror());
    return nullptr;
  }
  const auto get = reinterpret_cast<const void* (*)()>(dlsym(handle, object.function));
  const void* table = get != nullptr ? get() : nullptr;
  if (table != nullptr && *static_cast<const std::uint32_t*>(table) == object.version) return table;
  LogError(object.logUnit, __LINE__, __func__,
           "%s is of another version or cannot start; install host and %s object together.\n", object.file,
           object.name);
  dlclose(handle);
  return nullptr;
}

}  // namespace oculora
