#include "output/Watermark.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>
#include <vector>

#include "core/Log.h"
#include "orvanta/mux.h"
#include "platform/Files.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

wchar_t g_szWatermarkFile[OV_MAX_PATH];
int32_t g_nWatermarkAlignX;
int32_t g_nWatermarkAlignY;

namespace {

// A picture in straight-alpha BGRA, rows packed.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> bgra;
};

struct FormatCloser {
  void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecFreer {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFreer {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFreer {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct ScaleFreer {
  void operator()(SwsContext* s) const { sws_freeContext(s); }
};
struct BlockFreer {
  void operator()(uint8_t* p) const { std::free(p); }
};
using Block = std::unique_ptr<uint8_t, BlockFreer>;

Block ClearedBlock(size_t bytes) {
  constexpr size_t kAlign = 64;
  Block block(
      static_cast<uint8_t*>(std::aligned_alloc(kAlign, (bytes + kAlign - 1) & ~(kAlign - 1))));
  if (block) std::memset(block.get(), 0, bytes);
  return block;
}

// How long reading the picture may take: it runs on the host's thread.
constexpr auto kLoadLimit = std::chrono::seconds(5);

int PastDeadline(void* deadline) {
  return std::chrono::steady_clock::now() >
         *static_cast<std::chrono::steady_clock::time_point*>(deadline);
}

// The first picture of the file, through FFmpeg's image readers, so that
// PNG, JPEG, BMP, GIF, TIFF and WebP all serve. Only a regular file is read,
// through the file protocol alone: a FIFO, a device or a name such as
// "pipe:0" would block the caller.
bool LoadPicture(const std::wstring& widePath, Picture* picture) {
  if (ov::KindOf(widePath) != ov::PathKind::kFile) return false;
  auto deadline = std::chrono::steady_clock::now() + kLoadLimit;
  AVFormatContext* raw = avformat_alloc_context();
  if (!raw) return false;
  raw->interrupt_callback = {PastDeadline, &deadline};
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  const std::string url = "file:" + ov::ToUtf8(widePath);
  const int opened = avformat_open_input(&raw, url.c_str(), nullptr, &options);
  av_dict_free(&options);
  if (opened < 0) return false;
  std::unique_ptr<AVFormatContext, FormatCloser> format(raw);
  if (avformat_find_stream_info(format.get(), nullptr) < 0) return false;
  const AVCodec* codec = nullptr;
  const int stream = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (stream < 0 || !codec) return false;
  std::unique_ptr<AVCodecContext, CodecFreer> decoder(avcodec_alloc_context3(codec));
  if (!decoder ||
      avcodec_parameters_to_context(decoder.get(), format->streams[stream]->codecpar) < 0 ||
      avcodec_open2(decoder.get(), codec, nullptr) < 0)
    return false;

  std::unique_ptr<AVPacket, PacketFreer> packet(av_packet_alloc());
  std::unique_ptr<AVFrame, FrameFreer> frame(av_frame_alloc());
  if (!packet || !frame) return false;
  bool decoded = false;
  while (!decoded && av_read_frame(format.get(), packet.get()) >= 0) {
    if (packet->stream_index == stream && avcodec_send_packet(decoder.get(), packet.get()) >= 0)
      decoded = avcodec_receive_frame(decoder.get(), frame.get()) >= 0;
    av_packet_unref(packet.get());
  }
  if (!decoded && avcodec_send_packet(decoder.get(), nullptr) >= 0)
    decoded = avcodec_receive_frame(decoder.get(), frame.get()) >= 0;
  if (!decoded || frame->width <= 0 || frame->height <= 0) return false;

  std::unique_ptr<SwsContext, ScaleFreer> scale(sws_getContext(
      frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), frame->width,
      frame->height, AV_PIX_FMT_BGRA, SWS_POINT, nullptr, nullptr, nullptr));
  if (!scale) return false;
  picture->width = frame->width;
  picture->height = frame->height;
  picture->bgra.assign(static_cast<size_t>(frame->width) * frame->height * 4, 0);
  uint8_t* planes[1] = {picture->bgra.data()};
  const int pitches[1] = {frame->width * 4};
  sws_scale(scale.get(), frame->data, frame->linesize, 0, frame->height, planes, pitches);
  return true;
}

// Left (or top) edge of a picture of size inside a frame of extent.
int Place(int align, int size, int extent) {
  switch (align) {
    case 1:
      return (extent - size) / 2;
    case 2:
      return extent - size - ov::kWatermarkMargin;
    default:
      return ov::kWatermarkMargin;
  }
}

// Copies the picture into a BGR32 block of w x h at its place, cut at the
// block's edges.
void PlacePicture(const Picture& picture, uint8_t* block, int w, int h) {
  const int left = Place(g_nWatermarkAlignX, picture.width, w);
  const int top = Place(g_nWatermarkAlignY, picture.height, h);
  const int x0 = std::max(left, 0), x1 = std::min(left + picture.width, w);
  const int y0 = std::max(top, 0), y1 = std::min(top + picture.height, h);
  if (x0 >= x1) return;
  for (int y = y0; y < y1; ++y) {
    const uint8_t* from =
        picture.bgra.data() + (static_cast<size_t>(y - top) * picture.width + (x0 - left)) * 4;
    std::memcpy(block + (static_cast<size_t>(y) * w + x0) * 4, from,
                static_cast<size_t>(x1 - x0) * 4);
  }
}

// The block at half width and height: alpha averaged over each 2 x 2, colour
// weighted by alpha so that uncovered neighbours do not darken the edges.
void HalveBlock(const uint8_t* full, int w, int h, uint8_t* half) {
  const int hw = w / 2, hh = h / 2;
  for (int y = 0; y < hh; ++y) {
    for (int x = 0; x < hw; ++x) {
      uint32_t sum[3] = {0, 0, 0}, alpha = 0;
      for (int dy = 0; dy < 2; ++dy) {
        const uint8_t* p = full + (static_cast<size_t>(2 * y + dy) * w + 2 * x) * 4;
        for (int dx = 0; dx < 2; ++dx, p += 4) {
          for (int c = 0; c < 3; ++c) sum[c] += p[c] * p[3];
          alpha += p[3];
        }
      }
      uint8_t* out = half + (static_cast<size_t>(y) * hw + x) * 4;
      for (int c = 0; c < 3; ++c) out[c] = alpha ? static_cast<uint8_t>(sum[c] / alpha) : 0;
      out[3] = static_cast<uint8_t>((alpha + 2) / 4);
    }
  }
}

// BT.709, limited range, in 8-bit fixed point.
uint8_t LumaOf(const uint8_t* bgr) {
  return static_cast<uint8_t>((47 * bgr[2] + 157 * bgr[1] + 16 * bgr[0] + 128) / 256 + 16);
}
uint8_t BlueDifferenceOf(const uint8_t* bgr) {
  return static_cast<uint8_t>((-26 * bgr[2] - 86 * bgr[1] + 112 * bgr[0] + 128 + 32768) / 256);
}
uint8_t RedDifferenceOf(const uint8_t* bgr) {
  return static_cast<uint8_t>((112 * bgr[2] - 102 * bgr[1] - 10 * bgr[0] + 128 + 32768) / 256);
}

}  // namespace

void DrawWatermark(uint8_t* raster, int w, int h) {
  if (w <= 0 || h <= 0) return;
  const size_t pixels = static_cast<size_t>(w) * h;
  std::memset(raster, 0, pixels * 4);
  Picture picture;
  if (!LoadPicture(g_szWatermarkFile, &picture))
    WriteLog(ov::kWan, "Watermark picture not loaded:%ls\n", g_szWatermarkFile);

  Block full = ClearedBlock(pixels * 4);
  Block half = ClearedBlock(pixels);
  if (!full || !half) return;
  if (picture.width > 0) PlacePicture(picture, full.get(), w, h);
  HalveBlock(full.get(), w, h, half.get());

  uint8_t* y = raster;
  uint8_t* u = raster + pixels;
  uint8_t* v = raster + pixels * 5 / 4;
  uint8_t* alphaY = raster + pixels * 3 / 2;
  uint8_t* alphaUV = raster + pixels * 5 / 2;
  for (size_t i = 0; i < pixels; ++i) {
    const uint8_t* p = full.get() + i * 4;
    y[i] = LumaOf(p);
    alphaY[i] = p[3];
  }
  const size_t quarter = static_cast<size_t>(w / 2) * (h / 2);
  for (size_t i = 0; i < quarter; ++i) {
    const uint8_t* p = half.get() + i * 4;
    u[i] = BlueDifferenceOf(p);
    v[i] = RedDifferenceOf(p);
    alphaUV[i] = p[3];
  }
}

extern "C" HRESULT UseWatermark(const wchar_t* path, int alignX, int alignY) {
  if (path && !ov::PathFits(path)) {
    WriteLog(ov::kErr, "Error: watermark path too long, refused:%ls\n", path);
    return E_INVALIDARG;
  }
  if (!path)
    g_szWatermarkFile[0] = L'\0';
  else
    ov::StorePath(g_szWatermarkFile, path);
  g_nWatermarkAlignX = alignX;
  g_nWatermarkAlignY = alignY;
  return S_OK;
}
