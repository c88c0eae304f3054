// Plug-ins: which one serves an API, and the rows of its table.
#include "dispatcher/plugins.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace oculora {
namespace {

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};

constexpr char kBlank[] = " \t\r\n";

// Takes the next word off `line`.
std::string_view TakeWord(std::string_view& line) {
  const std::size_t first = line.find_first_not_of(kBlank);
  if (first == std::string_view::npos) return {};
  line.remove_prefix(first);
  const std::size_t size = std::min(line.find_first_of(kBlank), line.size());
  const std::string_view word = line.substr(0, size);
  line.remove_prefix(size);
  return word;
}

bool Serves(std::string_view prefix, std::string_view api) {
  return api.starts_with(prefix) && (api.size() == prefix.size() || api[prefix.size()] == '.');
}

}  // namespace

PluginLookup FindPlugin(const char* configuration, const std::string& api, std::string& plugin) {
  const std::unique_ptr<FILE, FileCloser> file(fopen(configuration, "re"));
  if (!file) return PluginLookup::kNoConfiguration;
  char* buffer = nullptr;
  std::size_t capacity = 0;
  std::size_t longest = 0;
  for (ssize_t size; (size = getline(&buffer, &capacity, file.get())) >= 0;) {
    std::string_view line(buffer, static_cast<std::size_t>(size));
    line = line.substr(0, line.find('#'));
    const std::string_view prefix = TakeWord(line);
    const std::string_view path = TakeWord(line);
    if (path.empty() || prefix.size() <= longest || !Serves(prefix, api)) continue;
    longest = prefix.size();
    plugin = path;
  }
  free(buffer);
  return longest > 0 ? PluginLookup::kFound : PluginLookup::kUnknown;
}

const VELM::APITableRow* LoadTable(const std::string& plugin, std::string& reason) {
  void* object = dlopen(plugin.c_str(), RTLD_LAZY | RTLD_LOCAL);
  if (object == nullptr) {
    reason = dlerror();
    return nullptr;
  }
  const auto getTable = reinterpret_cast<VELM::GetAPITableFunction>(dlsym(object, "GetAPITable"));
  if (getTable == nullptr) {
    reason = plugin + ": no function GetAPITable";
    return nullptr;
  }
  const VELM::APITableRow* table = getTable();
  if (table == nullptr) reason = plugin + ": GetAPITable gave no table";
  return table;
}

RowLookup FindRow(const VELM::APITableRow* table, const std::string& api, int version, const std::string& method,
                  const VELM::APITableRow*& row) {
  RowLookup nearest = RowLookup::kUnknownApi;
  for (row = table; row->apiName != nullptr; ++row) {
    if (api != row->apiName) continue;
    if (version != row->version) {
      if (nearest == RowLookup::kUnknownApi) nearest = RowLookup::kUnknownVersion;
    } else if (row->methodName == nullptr || method != row->methodName || row->entry == nullptr) {
      nearest = RowLookup::kUnknownMethod;
    } else {
      return RowLookup::kFound;
    }
  }
  return nearest;
}

}  // namespace oculora
