// A 4:2:0 picture in whole blocks.
#include "recorder/mxpeg/block_picture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace oculora {
namespace {

// The largest difference of two rows of samples.
int Distance(const std::uint8_t* a, const std::uint8_t* b, int count) {
  int most = 0;
  for (int i = 0; i < count; ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

}  // namespace

BlockPicture::BlockPicture(int blockColumns, int blockRows) : m_Columns(blockColumns) {
  for (std::size_t i = 0; i < m_Planes.size(); ++i) {
    Plane& plane = m_Planes[i];
    plane.side = i == 0 ? kBlockSize : kBlockSize / 2;
    plane.stride = blockColumns * plane.side;
    plane.samples.resize(static_cast<std::size_t>(plane.stride) * static_cast<std::size_t>(blockRows * plane.side));
  }
}

void BlockPicture::Assign(const PlanarPicture& picture, int width, int height) {
  for (std::size_t i = 0; i < m_Planes.size(); ++i) {
    Plane& plane = m_Planes[i];
    const auto stride = static_cast<std::size_t>(plane.stride);
    const auto used = static_cast<std::size_t>(i == 0 ? width : (width + 1) / 2);
    const int rows = i == 0 ? height : (height + 1) / 2;
    std::uint8_t* row = plane.samples.data();
    for (int y = 0; y < rows; ++y, row += stride) {
      std::memcpy(row, picture.planes[i] + std::ptrdiff_t{y} * picture.strides[i], used);
      std::memset(row + used, row[used - 1], stride - used);
    }
    for (const std::uint8_t* end = plane.samples.data() + plane.samples.size(); row != end; row += stride) {
      std::memcpy(row, row - stride, stride);
    }
  }
}

std::size_t BlockPicture::BlockAt(const Plane& plane, int index) const {
  const auto row = static_cast<std::size_t>(index / m_Columns);
  const auto column = static_cast<std::size_t>(index % m_Columns);
  const auto side = static_cast<std::size_t>(plane.side);
  return row * side * static_cast<std::size_t>(plane.stride) + column * side;
}

bool BlockPicture::Differs(const BlockPicture& other, int index, int noise) const {
  for (std::size_t i = 0; i < m_Planes.size(); ++i) {
    const Plane& plane = m_Planes[i];
    const std::size_t at = BlockAt(plane, index);
    const std::uint8_t* mine = plane.samples.data() + at;
    const std::uint8_t* theirs = other.m_Planes[i].samples.data() + at;
    for (int y = 0; y < plane.side; ++y, mine += plane.stride, theirs += plane.stride) {
      if (Distance(mine, theirs, plane.side) > noise) return true;
    }
  }
  return false;
}

void BlockPicture::CopyBlock(int index, BlockPicture& target, int to) const {
  for (std::size_t i = 0; i < m_Planes.size(); ++i) {
    const Plane& from = m_Planes[i];
    Plane& into = target.m_Planes[i];
    const std::uint8_t* source = from.samples.data() + BlockAt(from, index);
    std::uint8_t* sink = into.samples.data() + target.BlockAt(into, to);
    for (int y = 0; y < from.side; ++y, source += from.stride, sink += into.stride) {
      std::memcpy(sink, source, static_cast<std::size_t>(from.side));
    }
  }
}

PlanarPicture BlockPicture::View() const {
  PlanarPicture view{};
  for (std::size_t i = 0; i < m_Planes.size(); ++i) {
    view.planes[i] = m_Planes[i].samples.data();
    view.strides[i] = m_Planes[i].stride;
  }
  return view;
}

}  // namespace oculora
