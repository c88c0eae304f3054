// What the encoder makes, seen through a decoder that others wrote.
#include "recorder/mxpeg/mxpeg_encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "recorder/mxpeg/alaw.h"
#include "recorder/sources/test_picture.h"

namespace oculora {
namespace {

AvPtr<AVFrame> MakePicture(int width, int height) {
  AvPtr<AVFrame> picture(av_frame_alloc());
  picture->format = AV_PIX_FMT_YUVJ420P;
  picture->width = width;
  picture->height = height;
  EXPECT_EQ(av_frame_get_buffer(picture.get(), 0), 0);
  for (int plane = 0; plane < 3; ++plane) {
    std::memset(picture->data[plane], 128,
                static_cast<std::size_t>(picture->linesize[plane] * (height + 1) >> !!plane));
  }
  return picture;
}

// An encoder and a decoder behind it.
struct Chain {
  explicit Chain(const MxpegSettings& settings) {
    std::string reason;
    EXPECT_TRUE(encoder.Open(settings, reason)) << reason;
    EXPECT_EQ(avcodec_open2(decoder.get(), avcodec_find_decoder(AV_CODEC_ID_MXPEG), nullptr), 0);
  }

  bool Pass(const AVFrame& picture, std::int64_t timestampUs) {
    const auto& data = picture.data;
    const auto& lines = picture.linesize;
    coded = encoder.Encode({{data[0], data[1], data[2]}, {lines[0], lines[1], lines[2]}}, timestampUs);
    AvPtr<AVPacket> packet(av_packet_alloc());
    if (av_new_packet(packet.get(), static_cast<int>(coded.bytes.size())) < 0) return false;
    std::ranges::copy(coded.bytes, packet->data);
    return avcodec_send_packet(decoder.get(), packet.get()) == 0 &&
           avcodec_receive_frame(decoder.get(), seen.get()) == 0;
  }

  double Psnr(const AVFrame& drawn) const {
    if (seen->width != drawn.width || seen->height != drawn.height) return 0;
    double squares = 0;
    for (int y = 0; y < drawn.height; ++y) {
      for (int x = 0; x < drawn.width; ++x) {
        for (int plane = 0; plane < 3; ++plane) {  // colour counts four times
          const int half = plane == 0 ? 0 : 1;
          squares += std::pow(seen->data[plane][(y >> half) * seen->linesize[plane] + (x >> half)] -
                                  drawn.data[plane][(y >> half) * drawn.linesize[plane] + (x >> half)],
                              2);
        }
      }
    }
    return 10 * std::log10(255.0 * 255 * 3 * drawn.width * drawn.height / std::max(squares, 1.0));
  }

  MxpegEncoder encoder;
  MxpegEncoder::Coded coded;
  AvPtr<AVCodecContext> decoder{avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_MXPEG))};
  AvPtr<AVFrame> seen{av_frame_alloc()};
};

TEST(MxpegEncoder, DecodesToWhatWasDrawn) {
  for (const auto& [width, height] : {std::pair{640, 360}, {360, 200}, {648, 360}, {321, 241}}) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    Chain chain({.width = width, .height = height, .keyInterval = 40});
    const auto picture = MakePicture(width, height);
    std::size_t keySize = 0, deltas = 0, deltaBytes = 0;
    for (int number = 0; number < 100; ++number) {
      const std::int64_t stamp = 0x7766554433221100 + number * 40000;
      DrawTestPicture(*picture, stamp % 1000000000000);
      if (number == 60) chain.encoder.ForceKey();
      ASSERT_TRUE(chain.Pass(*picture, stamp)) << number;
      EXPECT_GT(chain.Psnr(*picture), 40) << number;
      const bool key = number == 0 || number == 40 || number == 60;
      ASSERT_EQ(chain.coded.key, key) << number;
      ASSERT_EQ(chain.seen->key_frame, key) << number;
      ASSERT_EQ(std::memcmp(chain.coded.bytes.data() + 6, "MXF", 4), 0);
      ASSERT_EQ(std::memcmp(chain.coded.bytes.data() + 14, &stamp, 8), 0) << "as this machine, little-endian";
      if (key) keySize = chain.coded.bytes.size();
      if (!key) deltaBytes += chain.coded.bytes.size(), ++deltas;
    }
    EXPECT_LT(deltaBytes / deltas, keySize / 3);
  }
}

TEST(MxpegEncoder, LeavesNoiseOutAndSendsAnotherSceneWhole) {
  Chain chain({.width = 320, .height = 240, .keyInterval = 1000, .noise = 6});
  const auto still = MakePicture(320, 240);
  const auto noisy = MakePicture(320, 240);
  std::mt19937 random(1);
  const std::size_t size = static_cast<std::size_t>(still->linesize[0] * still->height);
  for (int number = 0; number < 20; ++number) {
    for (std::size_t i = 0; i < size; ++i) noisy->data[0][i] = static_cast<std::uint8_t>(125 + random() % 7);
    ASSERT_TRUE(chain.Pass(*noisy, number));
    EXPECT_TRUE(number == 0 || chain.coded.bytes.size() < 200) << number;
  }
  noisy->data[0][noisy->linesize[0] * 100 + 100] = 255;  // one sample
  ASSERT_TRUE(chain.Pass(*noisy, 20));
  EXPECT_FALSE(chain.coded.key);
  EXPECT_GT(chain.seen->data[0][chain.seen->linesize[0] * 100 + 100], 200);
  std::memset(noisy->data[0], 30, size);
  ASSERT_TRUE(chain.Pass(*noisy, 21));
  EXPECT_TRUE(chain.coded.key);
  EXPECT_GT(chain.Psnr(*noisy), 40);
}

TEST(Alaw, CodesTheEndsOfItsSegments) {
  const std::pair<int, int> known[] = {{0, 0xD5}, {-1, 0x55}, {32767, 0xAA}, {-32768, 0x2A}, {511, 0xCA}, {512, 0xF5}};
  for (const auto& [sample, code] : known) EXPECT_EQ(AlawFromLinear(static_cast<std::int16_t>(sample)), code) << sample;
}

}  // namespace
}  // namespace oculora
