// Whether there is room for recordings.
#include "recorder/recording/disk_room.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "records/records.h"

namespace oculora {
namespace {

constexpr std::int64_t kMegabyte = 1000000;

struct Room {
  std::int64_t freeMb = 0;
  bool readOnly = false;
};

std::optional<Room> LookAtDisk() {
  struct statvfs disk {};
  // The recordings' own directory is made with the first of them.
  if (statvfs(kRecordingsDir, &disk) != 0 && statvfs(kVarDir, &disk) != 0) return std::nullopt;
  const auto free = static_cast<std::int64_t>(std::uint64_t{disk.f_bavail} * disk.f_frsize);
  return Room{free / kMegabyte, (disk.f_flag & ST_RDONLY) != 0};
}

std::string Free(std::int64_t mb) { return std::to_string(mb) + " MB are free"; }

}  // namespace

std::string LackOfRoom(std::int64_t reserveMb) {
  const auto room = LookAtDisk();
  if (!room) return DiskTrouble(errno);
  if (room->readOnly) return DiskTrouble(EROFS);
  if (room->freeMb >= reserveMb) return {};
  return "the disk is full: " + Free(room->freeMb) + ", " + std::to_string(reserveMb) + " MB are kept free";
}

std::string DiskTrouble(int code) {
  const auto room = LookAtDisk();
  if (code == ENOSPC && room) return "the disk is full: " + Free(room->freeMb);
  if (code == EDQUOT) return "the disk quota of this user is used up";
  return std::string("the disk cannot be written: ") + std::strerror(code);
}

}  // namespace oculora
