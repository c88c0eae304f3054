// Recorded events.
#pragma once

#include <cstdint>
#include <string>

enum REC_EVENT_TYPE : std::int32_t { REC_EVENT_TYPE_RECORDING = 0, REC_EVENT_TYPE_ALERT = 1 };

// One recorded event. Virtual operations stand in the order that callers rely on.
class Event {
 public:
  virtual ~Event() = default;
  virtual int GetCamId() const = 0;                   // for analytics events possibly the id of an analytics task
  virtual void GetPath(std::string& path) const = 0;  // recorded file name
  virtual int Load(int id, int dbArg, int dbType, int ndId) = 0;  // 0, or -1 when there is no such event
  virtual void NotifyFirstChunk() = 0;                            // playback starts from the first byte

  int GetId() const { return m_Id; }

 protected:
  std::int32_t m_Id = 0;
};

// An event raised by an alert; device type 1024 marks an analytics task.
class AlertEvent : public Event {
 public:
  int GetDeviceType() const { return m_DeviceType; }

 protected:
  std::int32_t m_DeviceType = 0;
};

namespace RecFactory {
// A new event record of that type, owned by the caller; null for an unknown type.
Event* NewByType(REC_EVENT_TYPE type);
}  // namespace RecFactory

// The kind of database an event lies in; `dbArg` is filled for Event::Load.
int GetDBType(int mountId, int archId, int& dbArg);
// Full path of the recorded file and its size in bytes. 0 or -1.
int GetEventFullPathAndSize(const Event& event, std::string& path, unsigned long long& size);
