// Goes through an AVI file from chunk to chunk.
#include "recordings/avi/avi_walk.h"

namespace oculora {
namespace {

// Ids are text: anything else is no chunk, but the zeros or the rubbish that a power cut left.
bool IsId(std::uint32_t id) {
  for (int i = 0; i < 4; ++i, id >>= 8) {
    if ((id & 0xff) < ' ' || (id & 0xff) > '~') return false;
  }
  return true;
}

bool IsEntered(std::uint32_t type) {
  switch (type) {
    case AviId("AVI "):
    case AviId("AVIX"):
    case AviId("hdrl"):
    case AviId("strl"):
    case AviId("movi"):
    case AviId("rec "):
      return true;
    default:
      return false;
  }
}

}  // namespace

bool AviWalk::Next() {
  if (IsExhausted() || !m_Reader.ReadHead(m_Next, m_Chunk) || !IsId(m_Chunk.id)) return false;
  ++m_Count;
  m_At = m_Next;
  m_Type = 0;
  std::uint8_t type[4];
  const bool isList = m_Chunk.id == AviId("RIFF") || m_Chunk.id == AviId("LIST");
  if (isList && m_Reader.Read(Data(), type, sizeof(type))) m_Type = GetAvi32(type);
  m_Next = IsEntered(m_Type) ? Data() + sizeof(type) : BehindAviChunk(m_At, m_Chunk.size);
  return true;
}

}  // namespace oculora
