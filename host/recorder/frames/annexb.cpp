// H.264 access units in byte-stream form, and the parameter sets in them.
#include "recorder/frames/annexb.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace oculora {
namespace {

constexpr std::array<std::uint8_t, 4> kStartCode = {0, 0, 0, 1};

// Where the next 00 00 01 at or after `from` begins; the size when there is none.
std::size_t FindStartCode(Bytes unit, std::size_t from) {
  for (std::size_t i = from; i + 2 < unit.size();) {
    if (unit[i + 2] > 1) {
      i += 3;  // no start code can begin at any of the three
    } else if (unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] == 1) {
      return i;
    } else {
      ++i;
    }
  }
  return unit.size();
}

// An unsigned Exp-Golomb number at bit `at` of `bytes`, which moves behind it; large ids are cut, which suits a key.
unsigned ReadGolomb(Bytes bytes, std::size_t& at) {
  const auto bit = [bytes](std::size_t i) -> unsigned {
    return i / 8 < bytes.size() ? (bytes[i / 8] >> (7 - i % 8)) & 1U : 0U;
  };
  std::size_t zeros = 0;
  while (zeros < 16 && bit(at + zeros) == 0) ++zeros;
  unsigned value = 0;
  for (std::size_t i = 0; i <= zeros; ++i) value = value * 2 + bit(at + zeros + i);
  at += 2 * zeros + 1;
  return value - 1;
}

// The id that names a parameter set among its kind: after header, profile, constraints and level in an SPS, right after
// the header in a PPS.
unsigned SetId(const Nal& nal) {
  std::size_t at = nal.Type() == kNalSps ? 32 : 8;
  return ReadGolomb(nal.bytes, at);
}

// A slice header begins with the number of its first macroblock and the slice's type; 1 and 6 stand for B.
void ReadSliceHeader(const Nal& slice, AccessUnitHead& head) {
  std::size_t at = 8;
  head.beginsPicture = ReadGolomb(slice.bytes, at) == 0;
  head.bidirectional = ReadGolomb(slice.bytes, at) % 5 == 1;
}

bool IsParameterSet(const Nal& nal) { return nal.Type() == kNalSps || nal.Type() == kNalPps; }

// Appends to a buffer of fixed size and remembers when it was too small.
class Appender {
 public:
  explicit Appender(std::span<std::uint8_t> out) : m_Out(out) {}
  void Append(Bytes bytes) {
    if (bytes.size() > m_Out.size() - m_Used) m_Full = true;
    if (m_Full || bytes.empty()) return;
    std::memcpy(m_Out.data() + m_Used, bytes.data(), bytes.size());
    m_Used += bytes.size();
  }
  void AppendUnit(Bytes nal) {
    Append(kStartCode);
    Append(nal);
  }
  std::size_t Length() const { return m_Full ? 0 : m_Used; }

 private:
  std::span<std::uint8_t> m_Out;
  std::size_t m_Used = 0;
  bool m_Full = false;
};

}  // namespace

NalReader::NalReader(Bytes unit) : m_Unit(unit), m_StartCode(FindStartCode(unit, 0)) {}

bool NalReader::Next(Nal& nal) {
  while (m_StartCode < m_Unit.size()) {
    const std::size_t begin = m_StartCode + 3;
    std::size_t end = FindStartCode(m_Unit, begin);
    m_StartCode = end;
    while (end > begin && m_Unit[end - 1] == 0) --end;
    if (end == begin) continue;
    nal.bytes = m_Unit.subspan(begin, end - begin);
    return true;
  }
  return false;
}

bool ParameterSets::Take(const Nal& nal) {
  if (!IsParameterSet(nal)) return false;
  const int type = nal.Type();
  const unsigned id = SetId(nal);
  const auto known = std::find_if(m_Sets.begin(), m_Sets.end(),
                                  [type, id](const Set& set) { return set.type == type && set.id == id; });
  if (known == m_Sets.end()) {
    m_Sets.push_back({type, id, {nal.bytes.begin(), nal.bytes.end()}});
  } else if (std::equal(known->bytes.begin(), known->bytes.end(), nal.bytes.begin(), nal.bytes.end())) {
    return false;
  } else {
    known->bytes.assign(nal.bytes.begin(), nal.bytes.end());
  }
  Rebuild();
  return true;
}

bool ParameterSets::TakeAll(Bytes stream) {
  bool changed = false;
  NalReader reader(stream);
  for (Nal nal; reader.Next(nal);) changed = Take(nal) || changed;
  return changed;
}

bool ParameterSets::IsComplete() const {
  const auto has = [this](int type) {
    return std::any_of(m_Sets.begin(), m_Sets.end(), [type](const Set& set) { return set.type == type; });
  };
  return has(kNalSps) && has(kNalPps);
}

void ParameterSets::Rebuild() {
  m_Stream.clear();
  for (const int type : {kNalSps, kNalPps}) {
    for (const Set& set : m_Sets) {
      if (set.type != type) continue;
      m_Stream.insert(m_Stream.end(), kStartCode.begin(), kStartCode.end());
      m_Stream.insert(m_Stream.end(), set.bytes.begin(), set.bytes.end());
    }
  }
}

AccessUnitHead ReadHead(Bytes unit, ParameterSets& sets) {
  AccessUnitHead head;
  NalReader reader(unit);
  for (Nal nal; reader.Next(nal);) {
    if (nal.IsSlice()) {
      head.hasSlice = true;
      head.idr = nal.Type() == kNalIdrSlice;
      ReadSliceHeader(nal, head);
      head.slices = unit.subspan(static_cast<std::size_t>(nal.bytes.data() - unit.data()));
      break;
    }
    head.setsChanged = sets.Take(nal) || head.setsChanged;
  }
  return head;
}

std::size_t WriteKeyUnit(Bytes unit, const AccessUnitHead& head, const ParameterSets& sets,
                         std::span<std::uint8_t> out) {
  Appender appender(out);
  const Bytes beforeSlices = unit.first(unit.size() - head.slices.size());
  NalReader delimiters(beforeSlices);
  for (Nal nal; delimiters.Next(nal);) {
    if (nal.Type() == kNalDelimiter) appender.AppendUnit(nal.bytes);
  }
  appender.Append(sets.Stream());
  NalReader others(beforeSlices);
  for (Nal nal; others.Next(nal);) {
    if (nal.Type() != kNalDelimiter && !IsParameterSet(nal)) appender.AppendUnit(nal.bytes);
  }
  appender.AppendUnit(head.slices);
  return appender.Length();
}

std::size_t WriteSlices(const AccessUnitHead& head, std::span<std::uint8_t> out) {
  Appender appender(out);
  appender.AppendUnit(head.slices);
  return appender.Length();
}

}  // namespace oculora
