// The setting of a video-analytics task.
#pragma once

#include <cstdint>

#include "dbwrapper.h"

// The columns that callers name; the table has 81.
enum class VEXA_SETTING_DB_COLUMNS : std::int32_t { kId = 0, kCameraId = 1, kColumnCount = 81 };

// Loaded by the id that an event of an analytics task carries where other events carry a camera id.
class VexaSetting : public DBWrapper<VEXA_SETTING_DB_COLUMNS>, protected DBWrapperData<VEXA_SETTING_DB_COLUMNS> {
 public:
  VexaSetting();
  ~VexaSetting() override;

  // Loads the row with that id from the records. 0, or -1 when there is none. Blocks like Camera::Load.
  int LoadById(int id) override;

  int GetCamId() const { return m_CamId; }  // the camera of the task; 0 before a successful load

 private:
  std::int32_t m_CamId = 0;
};
