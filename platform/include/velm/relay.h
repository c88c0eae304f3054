// Central management: which host this is, which recording servers it manages, and calls to them.
//
// Questions about servers read the records once a request and block like any read of them. Calls to another host may
// block for 5 s while connecting and end after 35 s without data. They go one hop far: a request that came from another
// host is not passed on. A call that fails leaves one line in the host's log.
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

// In what follows `query` is text as JsonToStrPair makes it ("encoded"), or exactly the parameters of a live stream, a
// recording's file or its pictures, with values as they are ("raw"), which are encoded here. A query of any other form
// is not sent: a value must never become a parameter of its own on the other host.

// Sends a web-API call (encoded) and drops its answer. 0 when the server answered with success within 60 s, else -1.
int SendWebAPIToRec(int ndId, const std::string& query);
// Sends a web-API call (encoded) and writes its answer to standard output after `header`, as it arrives. 0 when all of
// it was of the type that `header` names. -1 otherwise; the client has got an answer then as well: what the server says
// under its own type, or status 502 and a sentence.
int SendWebAPIToRecAndWriteAsHeader(int ndId, const std::string& query, const std::string& header);
// Passes an answer through to standard output as it arrives (raw), with its status, type and ranges. 0 when something
// was passed on, else -1 with nothing written: the caller answers its client itself.
int RedirectMFStream(int ndId, const std::string& path, const std::string& query);
int RedirectMFStream(int ndId, const std::string& query);
int RedirectWebAPIEvent(int ndId, const std::string& query);
