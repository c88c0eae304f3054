// A take: one event that is being recorded into its file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "recorder/recording/file_writer.h"
#include "records/events.h"

namespace oculora {

// What a file was closed with; completing it needs nothing else.
struct EndedTake {
  EventRecord event;
  std::shared_ptr<FileWriter> writer;
};

class Take {
 public:
  enum class Offered {
    kGoesOn,
    kLongEnough,  // the frame was not taken; the take may go on all the same with Write
    kEnds,        // the frame was not taken, and no other one can be
    kFailed,      // the disk did not take it; see Error()
  };

  // `event`: its row says that it is being recorded; `writer`: its open file.
  Take(EventRecord event, std::unique_ptr<FileWriter> writer);

  // Gives it the next frame of the camera. A continuous take ends before a key frame, so that the next one begins with
  // it; one that was asked for ends before any.
  Offered Offer(const FeedFrame& frame, Bytes extra);
  Offered Write(const FeedFrame& frame, Bytes extra);

  void SetWanted(std::int64_t us) { m_Event.wantedUs = us; }
  const EventRecord& Event() const { return m_Event; }
  FileWriter& Writer() { return *m_Writer; }
  EndedTake End() { return {m_Event, std::move(m_Writer)}; }

 private:
  bool Leaps(const FeedFrame& frame);

  EventRecord m_Event;
  std::unique_ptr<FileWriter> m_Writer;
  std::int64_t m_LastUs;        // the frame before
  std::int64_t m_LengthUs = 0;  // up to that one
  bool m_NeedsKey = true;
};

}  // namespace oculora
