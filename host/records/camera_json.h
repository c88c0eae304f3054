// Cameras as the web API shows them: to people, and to the host that manages this one.
#pragma once

#include <json/value.h>

#include <map>

#include "records/events.h"

namespace oculora {

class CameraDescriber {
 public:
  // Asks once whether the recorder runs, and what recording has come to.
  explicit CameraDescriber(Database& records);

  // {id, name, type, enabled, state, reason, recording}; looks at the camera's ring. Never its source: that may hold a
  // password. A camera of another server is "idle": its own server knows more.
  Json::Value Describe(const CameraRecord& camera) const;

  bool RecorderRuns() const { return m_RecorderRuns; }

 private:
  Json::Value DescribeRecording(const CameraRecord& camera) const;

  bool m_RecorderRuns;
  std::map<int, CameraRecording> m_Recordings;  // by camera
};

}  // namespace oculora
