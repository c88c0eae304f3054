// Counts the allocations of the program it is preloaded into; written to $COUNT_ALLOCATIONS_FILE when that exits.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

}  // extern "C"

namespace {

unsigned long gCount = 0;

struct AtExit {
  ~AtExit() {
    const char* path = getenv("COUNT_ALLOCATIONS_FILE");
    FILE* file = path != nullptr ? fopen(path, "w") : nullptr;
    if (file == nullptr) return;
    fprintf(file, "%lu\n", gCount);
    fclose(file);
  }
} gAtExit;

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void* malloc(size_t size) {
  ++gCount;
  return __libc_malloc(size);
}

EXPORTED void* calloc(size_t count, size_t size) {
  ++gCount;
  return __libc_calloc(count, size);
}

EXPORTED void* realloc(void* memory, size_t size) {
  ++gCount;
  return __libc_realloc(memory, size);
}
