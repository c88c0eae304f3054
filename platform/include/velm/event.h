// Recorded events.
#pragma once

#include <cstdint>
#include <string>

enum REC_EVENT_TYPE : std::int32_t { REC_EVENT_TYPE_RECORDING = 0, REC_EVENT_TYPE_ALERT = 1 };

// One recorded event. Virtual operations stand in the order that callers rely on.
class __attribute__((visibility("default"))) Event {
 public:
  Event() : Event(REC_EVENT_TYPE_RECORDING) {}
  virtual ~Event();

  // The camera; for events of an analytics task of this host (device type 1024) the id of the task.
  virtual int GetCamId() const;
  virtual void GetPath(std::string& path) const;  // recorded file name, below the storage's recordings

  // Loads event `id` from the database that GetDBType named. An AlertEvent loads only events that an alert raised, an
  // Event any: a request that another host forwards names no type. Only events that can be played: a recording that is
  // ready or still growing. 0, or -1 (no such event or storage, records unreadable) and leaves the object as it was.
  // Blocks on the records at most for their busy time-out.
  //
  // `ndId` above 0 is an event of that managed recording server, whatever the database. This host knows nothing of it
  // and believes in any `id` from 1 on; its owner will say. The camera is then one of that server's (the lowest number,
  // of those not being removed if there are any): enough to know whether its recordings may be seen. It has no file
  // here. -1 for a server that is not managed or that has no cameras here.
  virtual int Load(int id, int dbArg, int dbType, int ndId);

  // Playback starts from the first byte: notes in the records once when the event was first played. Waits at most
  // 200 ms for another writer; a failure is logged and matters to nobody.
  virtual void NotifyFirstChunk();

  int GetId() const { return m_Id; }  // 0 before a successful load

 protected:
  explicit Event(REC_EVENT_TYPE type) : m_Type(type) {}

  std::int32_t m_Type;
  std::int32_t m_Id = 0;
  std::int32_t m_CamId = 0;
  std::int32_t m_DeviceType = 0;
  bool m_Unplayed = false;  // of this host, and nobody has noted a playback yet
  std::string m_Path;
  std::string m_RecordingsDir;  // of the storage

 private:
  friend int GetEventFullPathAndSize(const Event& event, std::string& path, unsigned long long& size);
};

// An event raised by an alert; device type 1024 marks an analytics task of this host.
class __attribute__((visibility("default"))) AlertEvent : public Event {
 public:
  AlertEvent() : Event(REC_EVENT_TYPE_ALERT) {}
  ~AlertEvent() override;

  int GetDeviceType() const { return m_DeviceType; }
};

namespace RecFactory {
// A new event record of that type, owned by the caller; null for an unknown type.
Event* NewByType(REC_EVENT_TYPE type);
}  // namespace RecFactory

// The kind of database an event lies in: 2 an archive, else 1 a mount, else 0 this host's own records. `dbArg` is
// filled for Event::Load: the number of the archive or mount, or 0.
int GetDBType(int mountId, int archId, int& dbArg);
// Full path of the recorded file and its size in bytes now; a file that is being recorded grows. 0, or -1 when there is
// no such regular file (none of another server's events has one here) or its name leads out of the storage's
// recordings.
int GetEventFullPathAndSize(const Event& event, std::string& path, unsigned long long& size);
