// What a site has recorded, and what is being recorded.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <string>

#include "records/events.h"

namespace oculora {

struct RecordingSummary {
  RecordingTotals totals;
  std::int64_t freeMb = 0;     // of the recordings' disk
  std::int64_t reserveMb = 0;  // stays free
  std::map<int, CameraRecording> cameras;
};

RecordingSummary SummariseRecordings(Database& records);

Json::Value SummaryAsJson(const RecordingSummary& summary);
// As the camera list of the web API has it. What was noted last counts only while the recorder runs.
Json::Value CameraRecordingAsJson(const RecordingSummary& summary, const CameraRecord& camera, bool recorderRuns);

// "12 recordings, 3.4 GB; 120.5 GB are free, 0.5 GB of them stay so".
std::string SummaryAsText(const RecordingSummary& summary);
// "recorded continuously in files of 60 s: recording"; empty when there is nothing to say.
std::string CameraRecordingAsText(const RecordingSummary& summary, const CameraRecord& camera, bool recorderRuns);

}  // namespace oculora
