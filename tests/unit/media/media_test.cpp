// Key pictures through decoder, scaler and JPEG compressor: whole, damaged, hostile.
#include "velm/media.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "capture.h"
#include "recorder/av/ffmpeg.h"
#include "recorder/sources/test_picture.h"
#include "records/records.h"
#include "velm/camera.h"

using oculora::AvPtr;

extern "C" {
#include <libavutil/imgutils.h>
}

namespace {

using Buffer = std::vector<unsigned char>;
using Options = std::vector<std::pair<const char*, const char*>>;

constexpr int kWidth = 1280, kHeight = 720;

Buffer operator+(Buffer left, const Buffer& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// What an encoder made of the test picture.
struct Encoded {
  int type;
  Buffer unit;
  Buffer extra;  // what it wrote outside the stream
  Buffer source;
  AVPixelFormat format;
};

Encoded Encode(int type, const char* encoder, const Options& options = {}, AVPixelFormat format = AV_PIX_FMT_YUV420P) {
  const AVCodec* codec = avcodec_find_encoder_by_name(encoder);
  const AvPtr<AVCodecContext> context(avcodec_alloc_context3(codec));
  const AvPtr<AVFrame> picture(av_frame_alloc());
  const AvPtr<AVPacket> packet(av_packet_alloc());
  context->width = picture->width = kWidth;
  context->height = picture->height = kHeight;
  context->pix_fmt = format;
  context->time_base = {1, 25};
  context->flags |= AV_CODEC_FLAG_QSCALE;
  context->global_quality = 3 * FF_QP2LAMBDA;
  for (const auto& [name, value] : options) {
    EXPECT_EQ(av_opt_set(context.get(), name, value, AV_OPT_SEARCH_CHILDREN), 0) << name;
  }
  av_log_set_level(AV_LOG_QUIET);
  EXPECT_EQ(avcodec_open2(context.get(), codec, nullptr), 0);

  picture->format = format;
  EXPECT_EQ(av_frame_get_buffer(picture.get(), 1), 0);
  oculora::DrawTestPicture(*picture, 1'700'000'000'000'000);
  Buffer source(static_cast<std::size_t>(av_image_get_buffer_size(format, kWidth, kHeight, 1)));
  av_image_copy_to_buffer(source.data(), static_cast<int>(source.size()), picture->data, picture->linesize, format,
                          kWidth, kHeight, 1);
  picture->pts = 0;
  avcodec_send_frame(context.get(), picture.get());
  avcodec_send_frame(context.get(), nullptr);
  EXPECT_EQ(avcodec_receive_packet(context.get(), packet.get()), 0);
  return {type, Buffer(packet->data, packet->data + packet->size),
          Buffer(context->extradata, context->extradata + context->extradata_size), source, format};
}

Encoded EncodeH264(const Options& more = {}) {
  Options options = {{"preset", "veryfast"}, {"bf", "0"}, {"x264-params", "scenecut=0"}};
  options.insert(options.end(), more.begin(), more.end());
  return Encode(VIDEO_TYPE_H264, "libx264", options);
}

Encoded EncodeJpegKey(int type) {
  Encoded encoded = Encode(type, "mjpeg", {}, AV_PIX_FMT_YUVJ420P);
  const Buffer comment = {0xff, 0xfe, 0, 18, 'M', 'X', 'F', 0, 1, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8};
  if (type == VIDEO_TYPE_MXPEG) encoded.unit.insert(encoded.unit.begin() + 2, comment.begin(), comment.end());
  return encoded;
}

// One of every kind; the second H.264 and the MPEG-4 stream reorder and keep their headers outside.
std::vector<Encoded> EncodeAll() {
  std::vector<Encoded> all;
  all.push_back(EncodeH264());
  all.push_back(EncodeH264({{"bf", "2"}, {"flags", "+global_header"}}));
  all.back().type = VIDEO_TYPE_H264_PLUS;
  all.push_back(Encode(VIDEO_TYPE_MPEG4, "mpeg4", {{"bf", "2"}, {"flags", "+global_header"}}));
  all.push_back(EncodeJpegKey(VIDEO_TYPE_MJPEG));
  all.push_back(EncodeJpegKey(VIDEO_TYPE_MXPEG));
  return all;
}

struct Decoder {
  Decoder() = default;
  Decoder(int type, const Buffer& extra) { EXPECT_EQ(Init(type, extra), 0); }
  ~Decoder() { DoFFMpegFree(attr, data); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  int Init(int type, const Buffer& extra) {
    return DoFFMpegInitVideo(attr, type, extra.data(), static_cast<int>(extra.size()));
  }
  int Decode(const Buffer& unit) { return DoFFMpegDecode(attr, unit.data(), static_cast<int>(unit.size())); }
  int Scale(int toWidth, int toHeight, int format) {
    width = toWidth;
    height = toHeight;
    return DoFFMpegScale(attr, data, size, width, height, format);
  }
  Buffer Picture() const { return Buffer(data, data + size); }

  FFmpegAttr attr{};
  unsigned char* data = nullptr;
  int size = 0, width = 0, height = 0;
};

double Psnr(const Buffer& a, const Buffer& b) {
  if (a.size() != b.size() || a.empty()) return 0;
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum > 0 ? 10 * std::log10(255.0 * 255.0 * static_cast<double>(a.size()) / sum) : 100;
}

TEST(Media, ExtraDataInAnyShapeDoesNoHarm) {
  const Encoded inBand = EncodeH264(), outside = EncodeH264({{"flags", "+global_header"}});
  const Buffer startCode = {0, 0, 0, 1};
  const auto pps = std::search(outside.extra.begin() + 4, outside.extra.end(), startCode.begin(), startCode.end());
  const Buffer sps(outside.extra.begin() + 4, pps);
  const Buffer avcc = Buffer{1, sps[1], sps[2], sps[3], 0xff, 0xe1, 0, static_cast<unsigned char>(sps.size())} + sps +
                      Buffer{1, 0, static_cast<unsigned char>(outside.extra.end() - pps - 4)} +
                      Buffer(pps + 4, outside.extra.end());
  EXPECT_EQ(Decoder(VIDEO_TYPE_H264, {}).Decode(outside.unit), -1);
  EXPECT_EQ(Decoder(VIDEO_TYPE_H264, avcc).Decode(outside.unit), 0);
  for (const Buffer& extra : {Buffer(avcc.begin(), avcc.end() - 5), Buffer{1}, Buffer(1024, 1), Buffer(1024, 0)}) {
    EXPECT_EQ(Decoder(VIDEO_TYPE_H264, extra).Decode(inBand.unit), 0) << extra.size();
  }
}

TEST(Media, WholePicturesComeOutAsTheyWereDrawnWhateverDamageCameBefore) {
  for (const Encoded& encoded : EncodeAll()) {
    SCOPED_TRACE(testing::Message() << "type " << encoded.type << ", extra data " << encoded.extra.size());
    Decoder decoder(encoded.type, encoded.extra);
    const auto expectWhole = [&] {
      ASSERT_EQ(decoder.Decode(encoded.unit), 0);
      ASSERT_EQ(decoder.Scale(0, 0, encoded.format), 0);
      ASSERT_EQ(std::tuple(decoder.attr.width, decoder.width, decoder.height), std::tuple(kWidth, kWidth, kHeight));
      ASSERT_GT(Psnr(decoder.Picture(), encoded.source), 38);
    };
    expectWhole();
    const std::size_t size = encoded.unit.size();
    for (const std::size_t length : {std::size_t{12}, size / 2, size - 1}) {
      if (decoder.Decode(Buffer(encoded.unit.begin(), encoded.unit.begin() + static_cast<long>(length))) != 0) {
        EXPECT_EQ(decoder.Scale(0, 0, AV_PIX_FMT_RGB24), -1);
      }
      expectWhole();
    }
    unsigned random = 1;
    for (int round = 0; round < 40; ++round) {
      Buffer noisy = encoded.unit;
      for (std::size_t i = static_cast<std::size_t>(round) * 20; i < size; i += random % (size / 4) + 1) {
        random = random * 1664525 + 1013904223;
        noisy[i] = static_cast<unsigned char>(random >> 24);
      }
      const int rc = decoder.Decode(noisy);
      EXPECT_EQ(decoder.Scale(640, 360, AV_PIX_FMT_RGB24), rc);
    }
    EXPECT_EQ(decoder.Decode(Buffer(3000, 0x5a)), -1);
    expectWhole();
  }
}

// Where the compressed samples of the last slice or scan begin.
std::size_t SamplesOf(const Encoded& encoded) {
  const bool isJpeg = encoded.format == AV_PIX_FMT_YUVJ420P;
  const Buffer mark = isJpeg ? Buffer{0xff, 0xda} : Buffer{0, 0, 1, 0x65};
  const auto found = std::search(encoded.unit.begin(), encoded.unit.end(), mark.begin(), mark.end());
  return static_cast<std::size_t>(found - encoded.unit.begin()) + (isJpeg ? 14 : 4 + 6);
}

TEST(Media, WhatIsConcealmentAloneIsNoPicture) {
  for (const Encoded& encoded : {EncodeH264(), EncodeJpegKey(VIDEO_TYPE_MJPEG), EncodeJpegKey(VIDEO_TYPE_MXPEG)}) {
    const auto head = encoded.unit.begin() + static_cast<long>(SamplesOf(encoded));
    Decoder decoder(encoded.type, {});
    EXPECT_EQ(decoder.Decode(Buffer(encoded.unit.begin(), head)), -1) << encoded.type;
    EXPECT_EQ(decoder.Decode(Buffer(encoded.unit.begin(), head) + Buffer(2, 0)), -1) << encoded.type;
    EXPECT_EQ(decoder.Decode(encoded.unit), 0);
  }
}

TEST(Media, HostileSizesAndUnknownTypesAreToldOnce) {
  Encoded jpeg = EncodeJpegKey(VIDEO_TYPE_MJPEG);
  const Buffer whole = jpeg.unit, sof = {0xff, 0xc0, 0, 17, 8};
  const auto size = std::search(jpeg.unit.begin(), jpeg.unit.end(), sof.begin(), sof.end()) + 5;
  std::fill(size, size + 4, static_cast<unsigned char>(0xfe));
  Decoder decoder(VIDEO_TYPE_MJPEG, {});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(decoder.Decode(jpeg.unit), -1);
  EXPECT_EQ(decoder.Decode(whole), 0);
  EXPECT_EQ(decoder.Init(6, {}), -1);
  EXPECT_EQ(decoder.Decode(whole), -1);
  const std::string log = ReadFile(oculora::kLogPath);
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
  EXPECT_NE(log.find("megapixels"), std::string::npos) << log;
  EXPECT_NE(log.find("video type 6"), std::string::npos) << log;
}

TEST(Media, ColoursAreThoseOfTheStreamsMatrixAndRange) {
  struct Case {
    const char* matrix;
    AVPixelFormat format;
    int red[3];  // of the sixth bar: Y 65, U 100, V 212
  };
  for (const Case& c : {Case{nullptr, AV_PIX_FMT_YUV420P, {191, 0, 0}},
                        {"bt709", AV_PIX_FMT_YUV420P, {208, 18, 0}},
                        {nullptr, AV_PIX_FMT_YUVJ420P, {183, 15, 15}}}) {
    Options options = {{"preset", "veryfast"}};
    if (c.matrix != nullptr) options.emplace_back("colorspace", c.matrix);
    const Encoded encoded = Encode(VIDEO_TYPE_H264, "libx264", options, c.format);
    Decoder decoder(encoded.type, {});
    ASSERT_EQ(decoder.Decode(encoded.unit), 0);
    for (const auto& [width, height] : {std::pair(0, 0), {640, 360}, {333, 187}, {64, 2000}}) {
      ASSERT_EQ(decoder.Scale(width, height, AV_PIX_FMT_RGB24), 0);
      ASSERT_EQ(decoder.size, decoder.width * decoder.height * 3);
      const int x = decoder.width * 11 / 14, y = decoder.height / 10;
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(decoder.data[(y * decoder.width + x) * 3 + i], c.red[i], 4) << i;
    }
  }
}

TEST(Media, JpegFitsTheRoomOrIsRefused) {
  const Encoded encoded = EncodeH264();
  Decoder decoder(encoded.type, {});
  ASSERT_EQ(decoder.Decode(encoded.unit), 0);
  ASSERT_EQ(decoder.Scale(641, 359, AV_PIX_FMT_RGB24), 0);
  Buffer jpeg(1 << 18);
  const auto compress = [&](int capacity, int quality) {
    std::fill(jpeg.begin(), jpeg.end(), static_cast<unsigned char>(0xa5));
    int size = -1;
    const int rc = EncodeToJpeg(641, 359, decoder.data, jpeg.data(), capacity, size, quality);
    EXPECT_EQ(rc == 0, size > 0);
    EXPECT_EQ(std::count(jpeg.begin() + std::max(capacity, 0), jpeg.end(), 0xa5), (1 << 18) - std::max(capacity, 0));
    return size;
  };
  const int bytes = compress(1 << 18, -1);
  ASSERT_GT(bytes, 0);
  EXPECT_LT(compress(1 << 18, 10), bytes);
  for (const int capacity : {-1, 0, bytes - 1}) EXPECT_EQ(compress(capacity, -1), 0) << capacity;
  EXPECT_EQ(compress(bytes, -1), bytes);
  jpeg.resize(static_cast<std::size_t>(bytes));

  Decoder check(VIDEO_TYPE_MJPEG, {});
  ASSERT_EQ(check.Decode(jpeg), 0);
  ASSERT_EQ(check.Scale(0, 0, AV_PIX_FMT_RGB24), 0);
  EXPECT_GT(Psnr(check.Picture(), decoder.Picture()), 30);
}

}  // namespace
