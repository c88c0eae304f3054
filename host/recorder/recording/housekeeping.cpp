// Removing recordings: those that are too old or take too much room, and those that somebody removed.
#include "recorder/recording/housekeeping.h"

#include <sys/prctl.h>

#include <charconv>
#include <csignal>
#include <ctime>

#include "recorder/clock.h"
#include "recorder/recorder_log.h"
#include "recorder/recording/event_files.h"
#include "recorder/recording/job_thread.h"
#include "recorder/recording/records_link.h"
#include "records/events.h"

namespace oculora {
namespace {

constexpr int kBatch = 50;
constexpr std::int64_t kRetentionEveryUs = 60000000;
constexpr int kLookSeconds = 3;  // for what somebody removed
constexpr std::int64_t kDaySeconds = 86400;
constexpr std::int64_t kGigabyte = 1000000000;

bool ParseNumber(const std::string& text, std::int64_t& number) {
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end && number >= 0;
}

// What may stay.
struct Limits {
  std::int64_t endedAfterUs = 0;
  std::int64_t bytes = 0;  // 0: no limit
};

Limits ReadLimits(Database& records, std::int64_t nowSeconds) {
  const std::int64_t days = NumberSetting(records, kKeepDaysSetting, kKeepDaysDefault);
  const std::int64_t gigabytes = NumberSetting(records, kKeepGbSetting, kKeepGbDefault);
  Limits limits;
  if (days > 0 && days < nowSeconds / kDaySeconds) limits.endedAfterUs = (nowSeconds - days * kDaySeconds) * 1000000;
  if (gigabytes < INT64_MAX / kGigabyte) limits.bytes = gigabytes * kGigabyte;
  return limits;
}

// One batch. Whether there may be more to delete.
bool DeleteBatch(Database& records, const Limits& limits, std::string& reason) {
  EventTable table(records);
  std::int64_t bytes = limits.bytes > 0 ? table.Totals().bytes : 0;
  const auto batch = table.ListDeletable(kBatch);
  for (const EventRecord& event : batch) {
    const bool tooOld = event.startUs + event.lengthUs < limits.endedAfterUs;
    if (!tooOld && bytes <= limits.bytes) return false;
    // Somebody may have removed or kept it just now.
    if (!table.Expire(event.id)) continue;
    bytes -= event.bytes;
    if (!DeleteEvent(records, event, reason)) return false;
  }
  return !batch.empty() && !records.IsUnreadable();
}

// Waits for a signal. False when it says to end.
bool Wait(const sigset_t& signals, int seconds) {
  const timespec time{seconds, 0};
  return sigtimedwait(&signals, nullptr, &time) < 0;
}

// A round: everything that is due. A sentence about what could not be done.
std::string LookRound(RecordsLink& link, std::int64_t& retentionAtUs) {
  std::string reason;
  const bool changed = link.Changed();
  Database* records = link.Get();
  if (records == nullptr) return {};  // the supervisor tells
  const bool due = MonotonicUs() >= retentionAtUs;
  if (due) retentionAtUs = MonotonicUs() + kRetentionEveryUs;
  if (changed || due) FinishDeleting(*records, reason);
  if (due) ApplyRetention(*records, WallClockUs() / 1000000, reason);
  return reason;
}

}  // namespace

std::int64_t NumberSetting(Database& records, const char* name, const char* defaultValue) {
  std::int64_t number = 0;
  if (ParseNumber(records.GetSetting(name, defaultValue), number)) return number;
  ParseNumber(defaultValue, number);
  return number;
}

bool FinishDeleting(Database& records, std::string& reason) {
  bool allDone = true;
  for (const EventRecord& event : EventTable(records).ListUnfinished(0)) {
    if (event.state == EventState::kDeleting && !DeleteEvent(records, event, reason)) allDone = false;
  }
  return allDone;
}

bool ApplyRetention(Database& records, std::int64_t nowSeconds, std::string& reason) {
  const Limits limits = ReadLimits(records, nowSeconds);
  std::string trouble;
  while (!records.IsUnreadable() && DeleteBatch(records, limits, trouble)) {
  }
  if (!trouble.empty()) reason = trouble;
  return trouble.empty() && !records.IsUnreadable();
}

int RunHousekeeping() {
  prctl(PR_SET_NAME, "housekeeper");
  LowerPriority();
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  RecordsLink records;
  std::int64_t retentionAtUs = 0;
  std::string lastTrouble;
  do {
    const std::string trouble = LookRound(records, retentionAtUs);
    if (!trouble.empty() && trouble != lastTrouble) LogError("old recordings stay: %s", trouble.c_str());
    if (!trouble.empty()) lastTrouble = trouble;
  } while (Wait(signals, kLookSeconds));
  return 0;
}

}  // namespace oculora
