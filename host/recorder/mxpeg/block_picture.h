// A 4:2:0 picture in whole blocks of 16x16 pixels, as JPEG codes it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace oculora {

constexpr int kBlockSize = 16;

// A picture of somebody else's: Y, U, V; full range; the colour planes have half the width and height, rounded up.
struct PlanarPicture {
  std::array<const std::uint8_t*, 3> planes;
  std::array<int, 3> strides;
};

// Movable; copies nothing but what it is told to.
class BlockPicture {
 public:
  BlockPicture() = default;
  BlockPicture(int blockColumns, int blockRows);

  int Columns() const { return m_Columns; }

  // Takes over a picture of width x height pixels, which fits; its edges are drawn out to whole blocks.
  void Assign(const PlanarPicture& picture, int width, int height);
  // Whether a sample of block `index` (row by row) is off by more than `noise` from the same block of `other`, which
  // has the same size.
  bool Differs(const BlockPicture& other, int index, int noise) const;
  // Copies block `index` to block `to` of `target`.
  void CopyBlock(int index, BlockPicture& target, int to) const;

  PlanarPicture View() const;

 private:
  struct Plane {
    std::vector<std::uint8_t> samples;
    int stride = 0;
    int side = 0;  // of a block: 16, or 8 for colour
  };

  std::size_t BlockAt(const Plane& plane, int index) const;

  int m_Columns = 0;
  std::array<Plane, 3> m_Planes;
};

}  // namespace oculora
