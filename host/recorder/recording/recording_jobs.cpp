// What recording leaves to threads beside it: flushing, finishing files, thumbnails.
#include "recorder/recording/recording_jobs.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "front/unique_fd.h"
#include "recorder/recorder_log.h"
#include "recorder/recording/event_files.h"
#include "recorder/recording/thumbnail.h"

namespace oculora {

void RecordingJobs::Finish(EndedTake take, std::string failure) {
  m_Later.Add(
      [this, take = std::move(take), failure = std::move(failure)]() mutable { return FinishOne(take, failure); });
}

bool RecordingJobs::FinishOne(EndedTake& take, const std::string& failure) {
  if (take.writer) take.writer->Close();
  take.writer.reset();
  Database* records = m_Records.Get();
  if (records == nullptr) return false;
  RecordingFacts facts;
  std::string reason;
  const Completed completed = CompleteEvent(*records, take.event, &failure, facts, reason);
  if (completed == Completed::kNotNow) {
    if (reason != m_LastTrouble) LogError("event %d is completed later: %s", take.event.id, reason.c_str());
    m_LastTrouble = reason;
    return false;
  }
  m_LastTrouble.clear();
  return true;
}

void RecordingJobs::MakeThumbnail(const EventRecord& event, Bytes picture, std::vector<std::uint8_t> extra) {
  m_Later.Add([videoType = event.videoType, path = FullPath(ThumbnailPath(event.path)), extra = std::move(extra),
               copy = std::vector<std::uint8_t>(picture.begin(), picture.end())] {
    WriteThumbnail(videoType, copy, extra, path);
    return true;
  });
}

std::shared_ptr<std::atomic<bool>> RecordingJobs::Flush(const std::string& path) {
  auto done = std::make_shared<std::atomic<bool>>(false);
  m_Flushing.Add([path = FullPath(path), done] {
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (fd.IsValid()) fdatasync(fd.Get());  // the writer's own Sync tells how the disk does
    *done = true;
    return true;
  });
  return done;
}

}  // namespace oculora
