// Changes of single camera rows, as steps of a transaction that somebody else has opened.
#pragma once

#include <optional>

#include "records/records.h"

namespace oculora {

struct DatabaseImpl;

// Each sets the last error on failure; the transaction is then to be rolled back.
std::optional<int> InsertCameraRow(DatabaseImpl& database, const CameraRecord& camera);  // as Database::AddCamera
// Gives a camera of a recording server another name, type and profiles, and switches it on or off.
bool ChangeRemoteCameraRow(DatabaseImpl& database, const CameraRecord& camera);
bool DeleteCameraRow(DatabaseImpl& database, int id);  // refused as long as it has recordings

}  // namespace oculora
