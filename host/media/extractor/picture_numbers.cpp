// Which picture of a recording came out of the decoder. See picture_numbers.h.
#include "media/extractor/picture_numbers.h"

extern "C" {
#include <libavutil/avutil.h>
}

#include <algorithm>

namespace oculora {

void PictureNumbers::Begin(std::int32_t number) {
  m_Pending.clear();
  m_Next = number;
}

void PictureNumbers::Sent(std::int64_t time) {
  if (time == AV_NOPTS_VALUE) return;
  m_Pending.insert(std::upper_bound(m_Pending.begin(), m_Pending.end(), time), time);
}

std::int32_t PictureNumbers::CameOut(std::int64_t time) {
  const auto found = std::lower_bound(m_Pending.begin(), m_Pending.end(), time);
  if (time == AV_NOPTS_VALUE || found == m_Pending.end() || *found != time) return m_Next++;
  m_Next += static_cast<std::int32_t>(found - m_Pending.begin());
  m_Pending.erase(m_Pending.begin(), found + 1);
  return m_Next++;
}

}  // namespace oculora
