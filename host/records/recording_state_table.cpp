// What recording each camera has come to.
#include "records/database_impl.h"
#include "records/events.h"
#include "records/statement.h"

namespace oculora {

bool EventTable::SetCameraState(int camId, RecordingState state, const std::string& reason, std::int64_t nowSeconds) {
  {
    Statement same(m_Database, "SELECT 1 FROM recording_states WHERE camera = ? AND state = ? AND reason = ?");
    if (same.Bind(camId).Bind(static_cast<int>(state)).Bind(reason).Row()) return true;
  }
  Statement replace(m_Database, "INSERT OR REPLACE INTO recording_states VALUES (?, ?, ?, ?)");
  return replace.Bind(camId).Bind(static_cast<int>(state)).Bind(reason).Bind(nowSeconds).Run();
}

std::vector<CameraRecording> EventTable::ListCameraStates() {
  std::vector<CameraRecording> states;
  Statement select(m_Database, "SELECT camera, state, reason, since FROM recording_states ORDER BY camera");
  while (select.Row()) {
    states.push_back({select.Int(0), static_cast<RecordingState>(select.Int(1)), select.Text(2), select.Int64(3)});
  }
  return states;
}

}  // namespace oculora
