// Writes an AVI of JPEG pictures as they come, so that what is written can be shown and finished at any moment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "front/unique_fd.h"
#include "recordings/avi/avi_format.h"

namespace oculora {

// One file; not for several threads. Allocates nothing and copies nothing per picture. Whatever becomes of the writer,
// the file is completed by FinishAvi.
class AviWriter {
 public:
  // Makes the file, which must not exist yet, with mode 0600, and flushes its name to the disk. `nominalFps` is the
  // rate until Sync tells a better one; out of range (0.001 to 1000) it is 25. False with a sentence in `reason` on
  // failure; no file is left then. Once per writer.
  bool Open(const std::string& path, int width, int height, double nominalFps, std::string& reason);

  // Whether a picture of `size` bytes and the index still fit into a file.
  bool HasRoom(std::size_t size) const;

  // Appends a whole JPEG straight from the caller's memory. -1 with errno on failure: EINVAL when `data` does not begin
  // and end as a JPEG does, EFBIG when HasRoom says no, else what the system said (ENOSPC, EIO). After a failure the
  // file ends with the picture before, and the next call tries anew. May wait for the disk.
  int Write(const void* data, std::size_t size);

  // Writes what the header counts, with the average rate so far (pictures a second; the rate before stays when it is
  // out of range), and waits until everything is on the disk. -1 with errno on failure.
  int Sync(double framesPerSecond);

  // The length of the file, without the index.
  std::int64_t BytesWritten() const { return m_Header.moviEnd; }
  std::int32_t FramesWritten() const { return static_cast<std::int32_t>(m_Header.frames); }

  // Closes the descriptor and nothing else; the destructor does so too.
  void Close() { m_Fd.Reset(); }

 private:
  UniqueFd m_Fd;
  AviHeader m_Header;
};

}  // namespace oculora
