// Recorded events in the records.
#include <limits>

#include "recordings/recording_file.h"
#include "records/database_impl.h"
#include "records/events.h"
#include "records/statement.h"

namespace oculora {
namespace {

#define EVENT_COLUMNS                                                                                         \
  "SELECT id, camera, type, device_type, task, cause, state, reason, path, video_type, start_us, wanted_us, " \
  "length_us, bytes, frames, kept, played FROM events "

constexpr std::int64_t kForever = std::numeric_limits<std::int64_t>::max();

EventRecord ReadEvent(const Statement& row) {
  EventRecord event;
  event.id = row.Int(0);
  event.camId = row.Int(1);
  event.type = row.Int(2);
  event.deviceType = row.Int(3);
  event.task = row.Int(4);
  event.cause = static_cast<EventCause>(row.Int(5));
  event.state = static_cast<EventState>(row.Int(6));
  event.reason = row.Text(7);
  event.path = row.Text(8);
  event.videoType = row.Int(9);
  event.startUs = row.Int64(10);
  event.wantedUs = row.Int64(11);
  event.lengthUs = row.Int64(12);
  event.bytes = row.Int64(13);
  event.frames = row.Int(14);
  event.kept = row.Bool(15);
  event.played = row.Int64(16);
  return event;
}

std::vector<EventRecord> ReadAll(Statement& select) {
  std::vector<EventRecord> events;
  while (select.Row()) events.push_back(ReadEvent(select));
  return events;
}

std::string Named(int id) { return "event " + std::to_string(id); }

bool InsertEvent(DatabaseImpl& database, const EventRecord& event) {
  Statement insert(database,
                   "INSERT INTO events (id, camera, type, device_type, task, cause, state, reason, path, video_type, "
                   "start_us, wanted_us, length_us, bytes, frames, kept) "
                   "VALUES (nullif(?, 0), ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  insert.Bind(event.id).Bind(event.camId).Bind(event.type).Bind(event.deviceType).Bind(event.task);
  insert.Bind(static_cast<int>(event.cause)).Bind(static_cast<int>(event.state));
  insert.Bind(event.reason).Bind(event.path).Bind(event.videoType).Bind(event.startUs).Bind(event.wantedUs);
  insert.Bind(event.lengthUs).Bind(event.bytes).Bind(event.frames).Bind(event.kept);
  return insert.Run();
}

}  // namespace

EventTable::EventTable(Database& database) : m_Database(*database.m_Impl) {}

std::optional<EventRecord> EventTable::Load(int id) {
  Statement select(m_Database, EVENT_COLUMNS "WHERE id = ?");
  if (!select.Bind(id).Row()) return std::nullopt;
  return ReadEvent(select);
}

// Row values are compared as the index orders them, so a page costs the same wherever it lies. There is one upper bound
// only, the page's or the time's: the index serves no second one.
std::vector<EventRecord> EventTable::List(const EventQuery& query) {
  const std::int64_t toUs = query.toUs == 0 ? kForever : query.toUs;
  const bool fromStart = query.afterId == 0 || query.afterStartUs >= toUs;
  const std::int64_t belowUs = fromStart ? toUs : query.afterStartUs;
  const std::int64_t belowId = fromStart ? 0 : query.afterId;
  if (query.camId != 0) {
    Statement select(m_Database, EVENT_COLUMNS
                     "WHERE camera = ? AND (start_us, id) < (?, ?) AND start_us >= ? AND state <> 4 "
                     "ORDER BY start_us DESC, id DESC LIMIT ?");
    select.Bind(query.camId).Bind(belowUs).Bind(belowId).Bind(query.fromUs).Bind(query.limit);
    return ReadAll(select);
  }
  Statement select(m_Database, EVENT_COLUMNS
                   "WHERE (start_us, id) < (?, ?) AND start_us >= ? AND state <> 4 "
                   "ORDER BY start_us DESC, id DESC LIMIT ?");
  select.Bind(belowUs).Bind(belowId).Bind(query.fromUs).Bind(query.limit);
  return ReadAll(select);
}

std::vector<EventRecord> EventTable::ListUnfinished(int camId) {
  Statement select(m_Database, EVENT_COLUMNS "WHERE state <> 0 AND state <> 3 AND (? = 0 OR camera = ?) ORDER BY id");
  select.Bind(camId).Bind(camId);
  return ReadAll(select);
}

std::vector<EventRecord> EventTable::ListDeletable(int limit) {
  Statement select(m_Database, EVENT_COLUMNS "WHERE kept = 0 AND state IN (0, 3) ORDER BY start_us, id LIMIT ?");
  select.Bind(limit);
  return ReadAll(select);
}

RecordingTotals EventTable::Totals() {
  Statement select(m_Database, "SELECT count(*), sum(bytes) FROM events WHERE path <> ''");
  if (!select.Row()) return {};
  return {select.Int64(0), select.Int64(1)};
}

std::optional<int> EventTable::Add(const EventRecord& event, const char* extension) {
  Transaction transaction(m_Database);
  if (!transaction.IsOpen() || !InsertEvent(m_Database, event)) return std::nullopt;
  const int id = static_cast<int>(sqlite3_last_insert_rowid(m_Database.connection));
  if (extension != nullptr) {
    const std::string path = EventPath(event.camId, event.startUs, id, extension);
    Statement update(m_Database, "UPDATE events SET path = ? WHERE id = ?");
    if (!update.Bind(path).Bind(id).Run()) return std::nullopt;
  }
  if (!transaction.Commit()) return std::nullopt;
  return id;
}

std::string EventTable::Begin(int id, std::int64_t startUs, int videoType, const char* extension) {
  const std::optional<EventRecord> event = Load(id);
  if (!event) return {};
  std::string path = EventPath(event->camId, startUs, id, extension);
  Statement update(m_Database,
                   "UPDATE events SET state = 1, start_us = ?, video_type = ?, path = ? WHERE id = ? AND state = 2");
  update.Bind(startUs).Bind(videoType).Bind(path).Bind(id);
  return update.Run() && m_Database.ChangedSomething(Named(id)) ? path : std::string();
}

bool EventTable::Finish(int id, const RecordingFacts& facts) {
  Statement update(m_Database,
                   "UPDATE events SET state = 0, length_us = ?, bytes = ?, frames = ? WHERE id = ? AND state = 1");
  update.Bind(facts.lengthUs).Bind(facts.bytes).Bind(facts.frames).Bind(id);
  return update.Run() && m_Database.ChangedSomething(Named(id));
}

bool EventTable::Fail(int id, const std::string& reason) {
  Statement update(m_Database,
                   "UPDATE events SET state = 3, path = '', bytes = 0, reason = ? WHERE id = ? AND state IN (1, 2)");
  return update.Bind(reason).Bind(id).Run() && m_Database.ChangedSomething(Named(id));
}

bool EventTable::Stop(int id) {
  Statement update(m_Database, "UPDATE events SET wanted_us = 1 WHERE id = ? AND cause = 1 AND state IN (1, 2)");
  return update.Bind(id).Run() && m_Database.ChangedSomething("recording " + std::to_string(id) + " to stop");
}

bool EventTable::MarkDeleting(int id) {
  Statement update(m_Database, "UPDATE events SET state = 4 WHERE id = ? AND state IN (0, 3)");
  return update.Bind(id).Run() && m_Database.ChangedSomething("finished " + Named(id));
}

bool EventTable::Expire(int id) {
  Statement update(m_Database, "UPDATE events SET state = 4 WHERE id = ? AND kept = 0 AND state IN (0, 3)");
  return update.Bind(id).Run() && m_Database.ChangedSomething("finished " + Named(id) + " that is not kept");
}

bool EventTable::MarkCameraDeleting(int camId) {
  Statement update(m_Database, "UPDATE events SET state = 4 WHERE camera = ?");
  return update.Bind(camId).Run();
}

bool EventTable::Remove(int id) {
  Statement remove(m_Database, "DELETE FROM events WHERE id = ?");
  return remove.Bind(id).Run() && m_Database.ChangedSomething(Named(id));
}

bool EventTable::SetKept(int id, bool kept) {
  Statement update(m_Database, "UPDATE events SET kept = ? WHERE id = ?");
  return update.Bind(kept).Bind(id).Run() && m_Database.ChangedSomething(Named(id));
}

bool EventTable::SetPlayed(int id, std::int64_t nowSeconds) {
  Statement update(m_Database, "UPDATE events SET played = ? WHERE id = ? AND played = 0");
  return update.Bind(nowSeconds).Bind(id).Run();
}

}  // namespace oculora
