// Central management: which host this is, which recording servers it manages, and calls to them.
//
// Questions about servers read the records once a request and block like any read of them. Calls to another host may
// block for 5 s while connecting and end after 35 s without data; a host without the network for them (the open host of
// this version) answers each call at once with -1, writes nothing to standard output and one line to its log.
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

// A JSON object as query text ("a=1&b=2"): `encode` percent-encodes values, `skipNull` leaves null members out. Only
// the keys of a fixed list are passed on; another one is left out with a line in the log.
std::string JsonToStrPair(const Json::Value& object, bool encode, bool skipNull);

// Sends a web-API call and drops its answer. 0 when the server answered with success, else -1.
int SendWebAPIToRec(int ndId, const std::string& query);
// Sends a web-API call and writes its answer to standard output after `header`. 0 when a body was passed on, else -1
// with nothing written: the caller may still answer its client itself.
int SendWebAPIToRecAndWriteAsHeader(int ndId, const std::string& query, const std::string& header);
// Passes a streamed answer through to standard output as it arrives. 0 when a body was passed on, else -1 as above.
int RedirectMFStream(int ndId, const std::string& path, const std::string& query);
int RedirectMFStream(int ndId, const std::string& query);
int RedirectWebAPIEvent(int ndId, const std::string& query);
