// Calls to paired hosts: to the recording servers that this host manages.
//
// A call is a POST to the other host's dispatcher. Its query says what is asked, its body proves who asks (the keyed
// hash over the time that both hosts' secret gives), and its cookies carry that time and a session id made of the
// client's: the same for all calls of a session, of no use to anyone else. A host that got a request from another host
// calls no third one.
//
// Everything here blocks: up to 5 s for a connection, up to 35 s while the other host stays silent. The first call
// loads libcurl. For one thread.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/records.h"
#include "relay/http/http_table.h"

namespace oculora {

// Certificates of recording servers that no authority known to the system vouches for. Where this file exists, only
// what stands in it is trusted.
constexpr char kTrustedPath[] = "/var/packages/Oculora/etc/trusted.pem";

// The record of a managed server; empty when there is none with that id.
std::optional<ServerRecord> FindServer(int ndId);

// Calls one server and gives its answer to `sink`. `query` must be encoded. Empty when the whole answer came, else a
// reason for people that does not name the server ("cannot be reached: ...").
std::string CallServer(const ServerRecord& server, const std::string& query, HttpSink& sink, int totalSeconds = 0);

// One call that answers with JSON.
struct PeerCall {
  ServerRecord server;
  std::string query;  // encoded, like "api=VELM.Oculora.Server&method=Describe&version=1"
};

struct PeerAnswer {
  bool success = false;
  Json::Value data;                               // of a success
  int code = 0;                                   // the other host's error code when it refused; 0: it gave no answer
  std::string reason;                             // for people, when there was no success; does not name the server
  std::optional<std::int64_t> clockAheadSeconds;  // of the other host's clock before ours, as its answer tells
};

// What an answer in JSON means.
PeerAnswer ReadAnswer(const HttpHead& head, const std::string& body);

// Calls servers side by side and waits for all of them, `totalSeconds` at most. Answers stand in the order of calls.
// An answer larger than 4 MiB is none.
std::vector<PeerAnswer> CallServers(const std::vector<PeerCall>& calls, int totalSeconds);

// The same for a plain address and without proof: log-in and pairing, before the hosts know each other. `form` is the
// encoded body.
PeerAnswer PostForm(const std::string& serverUrl, const std::string& form, int totalSeconds);

}  // namespace oculora
