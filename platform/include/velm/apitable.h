// The row of a plug-in's API table: the binary interface between dispatcher and plug-in.
//
// A plug-in exports `GetAPITable`, which returns the first of a run of rows closed by an all-zero row. The dispatcher
// reads the rows in place, so field order and widths are fixed; both sides compile this header.
#pragma once

#include <cstddef>
#include <cstdint>

namespace VELM {

class APIRequest;
class APIResponse;

// Serves one request. Both objects are borrowed for the call. An exception may leave it; the caller catches.
using APIEntry = void (*)(APIRequest* request, APIResponse* response);

struct APITableRow {
  const char* apiName;     // full API name
  std::int32_t version;    // API version served by the row
  const char* methodName;  // method name within the API
  APIEntry entry;          // called for requests of this API, version and method
};

// Four machine words on every target: 16 bytes on 32-bit ARM, 32 bytes on 64-bit hosts.
static_assert(offsetof(APITableRow, apiName) == 0);
static_assert(offsetof(APITableRow, version) == sizeof(void*));
static_assert(offsetof(APITableRow, methodName) == 2 * sizeof(void*));
static_assert(offsetof(APITableRow, entry) == 3 * sizeof(void*));
static_assert(sizeof(APITableRow) == 4 * sizeof(void*));
static_assert(sizeof(void*) == 4 || sizeof(void*) == 8);

// What a plug-in exports under the name "GetAPITable". No side effects; may be called any number of times.
using GetAPITableFunction = const APITableRow* (*)();

}  // namespace VELM
