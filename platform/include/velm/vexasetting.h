// The setting of a video-analytics task.
#pragma once

#include <cstdint>

#include "dbwrapper.h"
#include "velm/dbinteger.h"
#include "velm/vexacolumns.h"

#define VEXA_SETTING_ENUMERATOR(column) column,
enum class VEXA_SETTING_DB_COLUMNS : std::int32_t {
  VEXA_SETTING_COLUMN_LIST(VEXA_SETTING_ENUMERATOR, VEXA_SETTING_ENUMERATOR) kColumnCount
};
#undef VEXA_SETTING_ENUMERATOR

// The columns of one row, each in a member named like it.
template <>
class DBWrapperData<VEXA_SETTING_DB_COLUMNS> {
 public:
  DBWrapperData();

 protected:
#define VEXA_SETTING_NUMBER(column) DBPrimitiveMember<std::int32_t> m_##column;
#define VEXA_SETTING_TEXT(column) DBPrimitiveMember<std::string> m_##column;
  VEXA_SETTING_COLUMN_LIST(VEXA_SETTING_NUMBER, VEXA_SETTING_TEXT)
#undef VEXA_SETTING_NUMBER
#undef VEXA_SETTING_TEXT

  DBMember* m_Members[static_cast<int>(VEXA_SETTING_DB_COLUMNS::kColumnCount)];
};

template <>
const char* const DBWrapper<VEXA_SETTING_DB_COLUMNS>::m_szTableName;

// Loaded by the id that an event of an analytics task carries where other events carry a camera id.
class VexaSetting : public DBWrapper<VEXA_SETTING_DB_COLUMNS> {
 public:
  // Loads the row with that id from the records. 0, or -1 when there is none; the object is as it was then. Blocks like
  // Camera::Load.
  int LoadById(int id) override;

  int GetCamId() const { return m_camera_id.Get(); }  // the camera of the task; 0 before a successful load
};
