// Which picture of a recording came out of the decoder, also when it left some out or put them into another order.
#pragma once

#include <cstdint>
#include <vector>

namespace oculora {

// Packets go into a decoder in one order and pictures come out in another, that of their times. Before a picture comes
// out, the packets of all that are shown before it went in, so it is known how many those are.
class PictureNumbers {
 public:
  // The next packet has `number` before it.
  void Begin(std::int32_t number);
  // A packet with this time goes in. AV_NOPTS_VALUE: it has none; pictures without times are counted.
  void Sent(std::int64_t time);
  // A picture with this time came out. Returns its number.
  std::int32_t CameOut(std::int64_t time);

 private:
  std::vector<std::int64_t> m_Pending;  // times of what did not come out yet, ascending
  std::int32_t m_Next = 0;              // number of the first of them
};

}  // namespace oculora
