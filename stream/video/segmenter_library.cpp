// The segmenter's shared object, which brings the media library along.
#include "segmenter_library.h"

#include <dlfcn.h>

#include <string>

#include "qmlog.h"
#include "video_unit.h"

namespace {

constexpr char kObjectName[] = "oculora-segmenter.so";

// The object stands beside the module this code is in.
std::string ObjectPath() {
  Dl_info own{};
  if (dladdr(reinterpret_cast<const void*>(&LoadSegmenter), &own) == 0 || own.dli_fname == nullptr) return kObjectName;
  const std::string module = own.dli_fname;
  const std::size_t slash = module.rfind('/');
  return slash == std::string::npos ? kObjectName : module.substr(0, slash + 1) + kObjectName;
}

}  // namespace

const SegmenterCalls* LoadSegmenter() {
  void* object = dlopen(ObjectPath().c_str(), RTLD_NOW | RTLD_LOCAL);
  if (object == nullptr) {
    QM_LOG(LOG_LEVEL_FATAL, "The segmenter cannot be loaded: %s\n", dlerror());
    return nullptr;
  }
  const auto get = reinterpret_cast<SegmenterCallsFunction>(dlsym(object, "FFMPG_GetSegmenterCalls"));
  const SegmenterCalls* calls = get != nullptr ? get() : nullptr;
  if (calls != nullptr && calls->version == kSegmenterVersion) return calls;
  QM_LOG(LOG_LEVEL_FATAL, "%s is of another version; install module and segmenter together.\n", kObjectName);
  dlclose(object);
  return nullptr;
}
