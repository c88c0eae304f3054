// What a recording server tells of itself and of its cameras, read with distrust. Pure.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "relay/stream_key.h"

namespace oculora {

struct ToldCamera {
  int id = 0;  // there
  std::string name;
  int videoType = 0;                   // CAM_VIDEO_TYPE
  int fps = 0, width = 0, height = 0;  // as declared there; 0 unknown
  bool enabled = false;
  std::string state, reason;
  std::string recordingMode, recordingState, recordingReason;
  StreamKeys keys;  // fit for key files; empty: it has none
};

struct ServerDescription {
  std::string name, version;
  bool recorderRuns = false;
  std::vector<ToldCamera> cameras;  // by id
  std::vector<std::string> notes;   // what was left out, a sentence each
};

// Reads the data of an answer to Describe. Nothing, with a sentence in `reason`, when it makes no sense as a whole;
// what may be left out or shortened without harm is. Texts are clean.
std::optional<ServerDescription> ReadDescription(const Json::Value& data, std::string& reason);

}  // namespace oculora
