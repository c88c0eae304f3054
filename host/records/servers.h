// Recording servers that this host manages, and the central host that manages this one: what administrators change.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "records/records.h"

namespace oculora {

constexpr std::size_t kMaxServerName = 64;
constexpr std::size_t kMinPairSecret = 16;
constexpr std::size_t kMaxPairSecret = 256;

// Whether paired hosts may share `secret`: kMinPairSecret to kMaxPairSecret printable ASCII characters.
bool IsPairSecret(const std::string& secret);

// What makes the rows of a server's cameras agree with the server.
struct CameraChanges {
  std::vector<CameraRecord> added;    // with the ids they get here
  std::vector<CameraRecord> changed;  // name, type, enabled and profiles count
  std::vector<CameraRecord> removed;
};

// The host that manages this one.
struct CentralRecord {
  std::string name;
  std::string secret;  // empty: nobody manages this host
};

// A view of a database, which must outlive it. Fails as Database does.
class ServerTable {
 public:
  explicit ServerTable(Database& database) : m_Database(database) {}

  std::optional<ServerRecord> Find(int id);
  // Adds a server, which makes this host a central one. With `replace` it may exist already: it gets name, address and
  // secret anew and keeps its cameras.
  bool Store(const ServerRecord& server, bool replace);
  // Removes a server with its cameras; without one left this host is no central one any more. Refused as long as
  // something was recorded of one of the cameras here.
  bool Remove(int id);
  // All changes or none. Names may be exchanged among the cameras changed.
  bool Apply(int server, const CameraChanges& changes);

  CentralRecord Central();
  // An empty secret ends it. Refused while another one manages this host, unless `replace`.
  bool SetCentral(const CentralRecord& central, bool replace);

 private:
  Database& m_Database;
};

}  // namespace oculora
