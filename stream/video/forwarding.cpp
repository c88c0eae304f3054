// Live pictures of cameras that another recording server owns: asked for there, its answer passed through.
#include "velm/relay.h"
#include "videoStreaming.h"
#include "video_unit.h"

// The owner looks after its own views, so nothing is noted here. It sees its own id of the camera and its own key.
void VideoStreamingHandler::ForwardStream(const char* format) {
  SlaveNdMgr servers(true);
  const std::map<int, SlaveNd> held = servers.GetSlaveNdMap(false, false, false);
  const std::string key = GetRecCamStmKey(m_OwnerNdId, m_CamId);
  const std::string query = GetAPIInfoStr() + "&isRedirectCgi=1" + "&cameraId=" + std::to_string(m_CamIdOnRec) +
                            "&format=" + format + "&StmKey=\"" + key + "\"";
  // The same words for every failure: the relay's own line in the log tells which.
  if (RedirectMFStream(m_OwnerNdId, "webapi/entry.cgi", query) != 0) PrintPlainText("Format not supported.\n\r");
}
