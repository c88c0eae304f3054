// Writing a camera's frames to a file, whatever kind of file they call for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "recorder/recording/frame_feed.h"
#include "recordings/recording_file.h"

namespace oculora {

enum class FileWrite {
  kWritten,
  kLeftOut,  // nothing for this file: a picture that needs another one, in a file of whole pictures
  kNewFile,  // not taken: it is the first of the next file
  kFailed,   // see Error()
};

// One file. A picture that was written stays in the file, whatever happens; FinishFile completes it. One thread at a
// time. `extra`: the codec extra data of the moment.
class FileWriter {
 public:
  virtual ~FileWriter() = default;
  // Whether a file can begin with that frame.
  virtual bool CanBeginWith(const FeedFrame& frame) const = 0;
  // Makes the file, which must not exist, for frames like `first`, which is not written yet. False with a sentence;
  // no file is left then.
  virtual bool Open(const std::string& path, const FeedFrame& first, Bytes extra, std::string& reason) = 0;
  // May wait for the disk.
  virtual FileWrite Write(const FeedFrame& frame, Bytes extra) = 0;
  // Waits until everything is on the disk. False: see Error().
  virtual bool Sync() = 0;
  // Writes what is still in memory and closes the file. May wait for the disk.
  virtual void Close() = 0;
  // The errno of what failed last.
  virtual int Error() const = 0;
};

// `seconds`: how long the file gets at most. `fps`: frames a second as far as known before any, or 0.
std::unique_ptr<FileWriter> MakeFileWriter(int videoType, std::int32_t seconds, int fps);

// Completes a file that a FileWriter wrote, by its extension; see FinishAvi and FinishMp4.
bool FinishFile(const std::string& path, RecordingFacts& facts, std::string& reason);

}  // namespace oculora
