// Central management: which host this is, which recording servers it manages, and calls to them.
//
// Relays block for at most 5 s while connecting and end after 35 s without data. At most one hop: a request that was
// relayed already is not relayed again. Values are encoded from the fixed list of keys; a repeated key is refused.
#pragma once

#include <json/value.h>

#include <map>
#include <string>

// Relay request and target records of the host's call-back machinery. The streaming module only names them.
struct CmsRelayParams;
struct CmsRelayTarget;

// Whether this host manages recording servers.
bool IsCmsHost();
// The recording server that owns a camera: 0 is this host (also for an unknown camera).
int GetCamOwnerNdId(int camId);

// One managed recording server.
struct SlaveNd {
  int id = 0;
  std::string name;
  std::string url;
};

class SlaveNdMgr {
 public:
  // `readOnly` loads without locking the records.
  explicit SlaveNdMgr(bool readOnly);
  // The managed servers by id; the flags ask for disabled, locked and deleted ones too.
  std::map<int, SlaveNd> GetSlaveNdMap(bool withDisabled, bool withLocked, bool withDeleted);

 private:
  bool m_ReadOnly;
};

// The stream key that recording server `ownerNdId` accepts for this host's camera `camId`; empty when none is known.
std::string GetRecCamStmKey(int ownerNdId, int camId);

// A JSON object as query text ("a=1&b=2"): `encode` percent-encodes values, `skipNull` leaves null members out.
std::string JsonToStrPair(const Json::Value& object, bool encode, bool skipNull);

// Sends a web-API call and drops its answer. 0 when the server answered with success.
int SendWebAPIToRec(int ndId, const std::string& query);
// Sends a web-API call and writes its answer to standard output after `header`. 0 when a body was passed on.
int SendWebAPIToRecAndWriteAsHeader(int ndId, const std::string& query, const std::string& header);
// Passes a streamed answer through to standard output as it arrives. 0 when a body was passed on.
int RedirectMFStream(int ndId, const std::string& path, const std::string& query);
int RedirectMFStream(int ndId, const std::string& query);
int RedirectWebAPIEvent(int ndId, const std::string& query);
