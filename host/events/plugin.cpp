// The table of the recordings' plug-in.
#include "events/events.h"
#include "velm/apitable.h"

extern "C" __attribute__((visibility("default"))) const VELM::APITableRow* GetAPITable() {
  static const VELM::APITableRow table[] = {
      {"VELM.Oculora.Event", 1, "List", oculora::ListEvents},
      {"VELM.Oculora.Event", 1, "Get", oculora::GetEvent},
      {"VELM.Oculora.Event", 1, "Thumbnail", oculora::SendThumbnail},
      {"VELM.Oculora.Event", 1, "Record", oculora::RecordEvent},
      {"VELM.Oculora.Event", 1, "Stop", oculora::StopEvent},
      {"VELM.Oculora.Event", 1, "Keep", oculora::KeepEvent},
      {"VELM.Oculora.Event", 1, "Remove", oculora::RemoveEvent},
      {"VELM.Oculora.Event", 1, "SetRate", oculora::SetPlayRate},
      {"VELM.Oculora.Event", 1, "Progress", oculora::TellProgress},
      {nullptr, 0, nullptr, nullptr},
  };
  return table;
}
