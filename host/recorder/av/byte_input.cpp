// The bytes of a URL or file, through FFmpeg's protocols.
#include "recorder/av/byte_input.h"

#include <algorithm>
#include <limits>

namespace oculora {

std::string MimeTypeOf(AVIOContext* io) {
  std::uint8_t* text = nullptr;
  if (io == nullptr || av_opt_get(io, "mime_type", AV_OPT_SEARCH_CHILDREN, &text) < 0 || text == nullptr) return {};
  std::string mime(reinterpret_cast<const char*>(text));
  av_free(text);
  return mime;
}

int ByteInput::Open(const std::string& url, Dictionary& options) {
  m_Io.reset();
  const AVIOInterruptCB callback = m_Interrupt.Callback();
  AVIOContext* io = nullptr;
  const int rc = avio_open2(&io, url.c_str(), AVIO_FLAG_READ, &callback, options.Get());
  if (rc < 0) return rc;
  m_Io.reset(io);
  return 0;
}

int ByteInput::Read(std::span<std::uint8_t> space) {
  const std::size_t most = std::min<std::size_t>(space.size(), std::numeric_limits<int>::max());
  return avio_read_partial(m_Io.get(), space.data(), static_cast<int>(most));
}

int ByteInput::Rewind() {
  const std::int64_t at = avio_seek(m_Io.get(), 0, SEEK_SET);
  return at < 0 ? static_cast<int>(at) : 0;
}

}  // namespace oculora
