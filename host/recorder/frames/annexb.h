// H.264 access units in byte-stream form, and the parameter sets in them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace oculora {

using Bytes = std::span<const std::uint8_t>;

enum NalType : int {
  kNalSliceFirst = 1,
  kNalIdrSlice = 5,
  kNalSei = 6,
  kNalSps = 7,
  kNalPps = 8,
  kNalDelimiter = 9,
};

// One NAL unit, without start code and without the zero bytes that may follow it.
struct Nal {
  Bytes bytes;
  int Type() const { return bytes[0] & 0x1f; }
  bool IsSlice() const { return Type() >= kNalSliceFirst && Type() <= kNalIdrSlice; }
};

// Goes through the NAL units of an access unit. Bytes before the first start code are skipped, empty units too.
class NalReader {
 public:
  explicit NalReader(Bytes unit);
  bool Next(Nal& nal);

 private:
  Bytes m_Unit;
  std::size_t m_StartCode;  // where the next one begins; the size of the unit at the end
};

// The SPS and PPS in force, replaced one by one as a camera changes them.
class ParameterSets {
 public:
  // Takes over an SPS or PPS; other units are ignored. True when that changed anything.
  bool Take(const Nal& nal);
  // Takes over all in a byte stream. True when that changed anything.
  bool TakeAll(Bytes stream);
  // Whether there is at least one of each.
  bool IsComplete() const;
  // All of them as a byte stream, SPS first.
  Bytes Stream() const { return m_Stream; }

 private:
  struct Set {
    int type;
    unsigned id;
    std::vector<std::uint8_t> bytes;
  };
  void Rebuild();

  std::vector<Set> m_Sets;
  std::vector<std::uint8_t> m_Stream;
};

// An access unit up to its first slice.
struct AccessUnitHead {
  bool idr = false;  // the first slice is of an IDR picture
  bool hasSlice = false;
  bool beginsPicture = false;  // the first slice holds the first macroblock
  bool bidirectional = false;  // the first slice is of a B-frame
  bool setsChanged = false;    // the parameter sets in it were news
  Bytes slices;                // from the first slice's NAL header to the end
};

// Looks at the units before the first slice and takes their parameter sets over.
AccessUnitHead ReadHead(Bytes unit, ParameterSets& sets);

// Writes `unit` to `out` with the parameter sets exactly once, after the delimiter and before everything else. Returns
// the length; 0 when it needs more than `out` offers.
std::size_t WriteKeyUnit(Bytes unit, const AccessUnitHead& head, const ParameterSets& sets,
                         std::span<std::uint8_t> out);

// Writes the slices of a unit that goes on with a picture to `out`. Returns the length; 0 when there is no room.
std::size_t WriteSlices(const AccessUnitHead& head, std::span<std::uint8_t> out);

}  // namespace oculora
