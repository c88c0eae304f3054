// Plug-ins: which one serves an API, and the rows of its table.
#pragma once

#include <string>

#include "velm/apitable.h"

namespace oculora {

constexpr char kPluginsConf[] = "/var/packages/Oculora/etc/plugins.conf";

enum class PluginLookup { kFound, kUnknown, kNoConfiguration };

// Finds the plug-in for `api` in the configuration: lines "PREFIX PATH", "#" starts a comment. A prefix serves the API
// of its name and those below it ("A.B" serves "A.B" and "A.B.C", not "A.BC"); the longest one counts.
PluginLookup FindPlugin(const char* configuration, const std::string& api, std::string& plugin);

// Loads a plug-in, for good, and returns its table; null with a reason otherwise.
const VELM::APITableRow* LoadTable(const std::string& plugin, std::string& reason);

enum class RowLookup { kFound, kUnknownApi, kUnknownVersion, kUnknownMethod };

// The row that serves a request. When there is none, the nearest thing that is missing.
RowLookup FindRow(const VELM::APITableRow* table, const std::string& api, int version, const std::string& method,
                  const VELM::APITableRow*& row);

}  // namespace oculora
