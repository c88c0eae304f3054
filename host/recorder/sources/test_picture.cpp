// The generated picture: colour bars, a moving stripe and the time of day.
#include "recorder/sources/test_picture.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace oculora {
namespace {

struct Colour {
  std::uint8_t y, u, v;
};

// White, yellow, cyan, green, magenta, red, blue at three quarters.
constexpr std::array<Colour, 7> kBars = {
    {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58}, {84, 184, 198}, {65, 100, 212}, {35, 212, 114}}};
constexpr Colour kWhite = {235, 128, 128};
constexpr Colour kBlack = {16, 128, 128};

// Rows of three dots, top first, for the characters 0 to 9, ':' and '.'.
constexpr std::array<std::array<std::uint8_t, 5>, 12> kFont = {{{7, 5, 5, 5, 7},
                                                                {2, 6, 2, 2, 7},
                                                                {7, 1, 7, 4, 7},
                                                                {7, 1, 7, 1, 7},
                                                                {5, 5, 7, 1, 1},
                                                                {7, 4, 7, 1, 7},
                                                                {7, 4, 7, 5, 7},
                                                                {7, 1, 1, 2, 2},
                                                                {7, 5, 7, 5, 7},
                                                                {7, 5, 7, 1, 7},
                                                                {0, 2, 0, 2, 0},
                                                                {0, 0, 0, 0, 2}}};

std::uint8_t* Row(AVFrame& picture, int plane, int row) {
  return picture.data[plane] + std::ptrdiff_t{row} * picture.linesize[plane];
}

// Fills a rectangle given in even pixels; what lies outside is left out.
void Fill(AVFrame& picture, int x, int y, int width, int height, Colour colour) {
  const int left = std::clamp(x, 0, picture.width) & ~1;
  const int right = std::clamp(x + width, 0, picture.width) & ~1;
  const int top = std::clamp(y, 0, picture.height) & ~1;
  const int bottom = std::clamp(y + height, 0, picture.height) & ~1;
  if (right <= left) return;
  for (int row = top; row < bottom; ++row) {
    std::memset(Row(picture, 0, row) + left, colour.y, static_cast<std::size_t>(right - left));
  }
  for (int row = top / 2; row < bottom / 2; ++row) {
    const auto half = static_cast<std::size_t>(right / 2 - left / 2);
    std::memset(Row(picture, 1, row) + left / 2, colour.u, half);
    std::memset(Row(picture, 2, row) + left / 2, colour.v, half);
  }
}

void DrawCharacter(AVFrame& picture, int x, int y, int dot, char character) {
  const std::size_t index = character == ':' ? 10 : character == '.' ? 11 : static_cast<std::size_t>(character - '0');
  for (int row = 0; row < 5; ++row) {
    for (int column = 0; column < 3; ++column) {
      if (kFont[index][static_cast<std::size_t>(row)] & (4 >> column)) {
        Fill(picture, x + column * dot, y + row * dot, dot, dot, kWhite);
      }
    }
  }
}

void DrawClock(AVFrame& picture, std::int64_t wallUs) {
  const std::time_t seconds = static_cast<std::time_t>(wallUs / 1000000);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[24];
  const int length = std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%d", local.tm_hour, local.tm_min, local.tm_sec,
                                   static_cast<int>(wallUs / 100000 % 10));
  const int dot = std::max(picture.width / (4 * (length + 2)) & ~1, 2);
  const int width = length * 4 * dot;
  const int x = (picture.width - width) / 2 & ~1;
  const int y = (picture.height - 5 * dot) / 2 & ~1;
  Fill(picture, x - dot, y - dot, width + dot, 7 * dot, kBlack);
  for (int i = 0; i < length; ++i) DrawCharacter(picture, x + i * 4 * dot, y, dot, text[i]);
}

}  // namespace

void DrawTestPicture(AVFrame& picture, std::int64_t wallUs) {
  const int count = static_cast<int>(kBars.size());
  for (int bar = 0; bar < count; ++bar) {
    const int x = picture.width * bar / count;
    Fill(picture, x, 0, picture.width - x, picture.height, kBars[static_cast<std::size_t>(bar)]);
  }
  // Crosses the picture every four seconds.
  const int stripe = static_cast<int>(wallUs % 4000000 * picture.width / 4000000);
  Fill(picture, stripe, 0, std::max(picture.width / 40, 2), picture.height, kWhite);
  DrawClock(picture, wallUs);
}

}  // namespace oculora
