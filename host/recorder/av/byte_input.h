// The bytes of a URL or file, through FFmpeg's protocols.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "recorder/av/dictionary.h"
#include "recorder/av/ffmpeg.h"
#include "recorder/av/interrupt.h"

namespace oculora {

// The media type that the server at the other end named ("multipart/x-mixed-replace"), empty when it named none or when
// there is no server.
std::string MimeTypeOf(AVIOContext* io);

// Errors are AVERROR codes. Calls block as long as `interrupt` lets them.
class ByteInput {
 public:
  explicit ByteInput(Interrupt& interrupt) : m_Interrupt(interrupt) {}

  // 0 or an error.
  int Open(const std::string& url, Dictionary& options);
  // Waits for bytes and takes those that are there; how many, or an error (AVERROR_EOF at the end).
  int Read(std::span<std::uint8_t> space);
  // Back to the first byte: 0 or an error.
  int Rewind();
  std::string MimeType() const { return MimeTypeOf(m_Io.get()); }

 private:
  Interrupt& m_Interrupt;
  AvPtr<AVIOContext> m_Io;
};

}  // namespace oculora
