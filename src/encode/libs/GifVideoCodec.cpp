#include "encode/libs/GifVideoCodec.h"

#include <algorithm>
#include <cstring>

#include "encode/libs/EncoderLog.h"
#include "encode/libs/GifTempVideo.h"
#include "platform/Text.h"

namespace ov::enc::gif {

namespace {

constexpr int kMaxSide = 16384;
constexpr int kMaxFrameRate = 240;

}  // namespace

CGifVideoCodec::~CGifVideoCodec() {
  av_packet_free(&m_packet);
  av_frame_free(&m_picture);
  avcodec_free_context(&m_encoder);
}

HRESULT CGifVideoCodec::Initialize(int32_t codecType, int32_t width, int32_t height,
                                   int32_t frameRate, int32_t, const wchar_t* file) {
  if (m_initializeCalled) return E_FAIL;
  m_initializeCalled = true;
  if (codecType != kGifCodecType || width < 1 || height < 1 || width > kMaxSide ||
      height > kMaxSide || !file || !*file) {
    Log(kErr, "Bad encoder settings: codec %d, %dx%d\n", codecType, width, height);
    return E_INVALIDARG;
  }
  m_width = width;
  m_height = height;
  frameRate = std::clamp(frameRate, 1, kMaxFrameRate);
  RouteLibavLog();
  const AVCodec* codec = avcodec_find_encoder(kTempCodec);
  m_encoder = codec ? avcodec_alloc_context3(codec) : nullptr;
  m_picture = av_frame_alloc();
  m_packet = av_packet_alloc();
  if (!m_encoder || !m_picture || !m_packet) {
    Log(kErr, "No FFV1 encoder for GIF recording\n");
    return E_FAIL;
  }
  m_encoder->width = width;
  m_encoder->height = height;
  m_encoder->pix_fmt = kTempPixels;
  m_encoder->time_base = {1, static_cast<int>(kIndexClock)};
  // Version 1 keeps each frame's whole set-up in the frame, so that any frame
  // decodes alone; one thread takes a 1080p frame in about 28 ms.
  m_encoder->gop_size = 1;
  m_encoder->level = 1;
  if (int error = avcodec_open2(m_encoder, codec, nullptr); error < 0) {
    Log(kErr, "Video encoder ffv1 %dx%d did not open (%d)\n", width, height, error);
    return E_FAIL;
  }
  m_picture->format = kTempPixels;
  m_picture->width = width;
  m_picture->height = height;
  if (av_frame_get_buffer(m_picture, 64) < 0) return E_OUTOFMEMORY;

  std::string path = ov::ToUtf8(file);
  if (int error = m_writer.Create(path, kGifCodecType, width, height, frameRate)) {
    Log(kErr, "Failed(%d) to create file:%s\n", error, path.c_str());
    m_writer.Close();
    return E_FAIL;
  }
  Log(kMsg, "Video encoder ffv1 for GIF %dx%d, %d fps\n", width, height, frameRate);
  m_open = true;
  return S_OK;
}

int32_t CGifVideoCodec::WriteFrame(const uint8_t* frame, int32_t stride, int64_t time, BOOL,
                                   BOOL unchanged) {
  if (!m_open || m_failed || !frame || stride < m_width * 4) return 0;
  const int64_t ticks = TimeToTicks(time);
  m_endTicks = std::max(m_endTicks, ticks);
  if (unchanged && m_lastTicks >= 0) return 1;

  const auto start = std::chrono::steady_clock::now();
  // The encoder has let go of the picture by the time its packet is out.
  int error = av_frame_make_writable(m_picture);
  if (error < 0) {
    Fail("taking a frame", error);
    return 0;
  }
  // The picture still holds the last frame stored: a frame that the capture
  // did not see as unchanged but is the same costs nothing either.
  bool same = m_lastTicks >= 0;
  const size_t rowBytes = static_cast<size_t>(m_width) * 4;
  for (int y = 0; y < m_height; ++y) {
    uint8_t* row = m_picture->data[0] + static_cast<ptrdiff_t>(y) * m_picture->linesize[0];
    const uint8_t* source = frame + static_cast<ptrdiff_t>(y) * stride;
    if (same && std::memcmp(row, source, rowBytes) == 0) continue;
    same = false;
    std::memcpy(row, source, rowBytes);
  }
  if (same) return 1;
  m_picture->pts = std::max(ticks, m_lastTicks + 1);
  m_lastTicks = m_picture->pts;
  error = avcodec_send_frame(m_encoder, m_picture);
  if (error >= 0) error = avcodec_receive_packet(m_encoder, m_packet);
  if (error < 0) {
    Fail("encoding a frame", error);
    return 0;
  }
  error = m_writer.Write(m_packet->data, static_cast<size_t>(m_packet->size), ticks, true);
  const int64_t size = m_packet->size;
  av_packet_unref(m_packet);
  if (error) {
    Fail("writing the temp video", AVERROR(error));
    return 0;
  }
  m_pStatistics->AddBytes(size);
  m_pStatistics->AddFrame();
  m_frameTime.Account(m_pRateControl, std::chrono::steady_clock::now() - start);
  return 0;
}

void CGifVideoCodec::Finish() {
  if (!m_open) return;
  m_open = false;
  // The closing mark keeps the length of a recording that ends standing still.
  int error = m_failed ? 0 : m_writer.Write(m_picture->data[0], 0, m_endTicks, false);
  if (int closeError = m_writer.Close(); !error) error = closeError;
  if (error) Fail("closing the temp video", AVERROR(error));
}

void CGifVideoCodec::Fail(const char* step, int error) {
  if (m_failed) return;
  m_failed = true;
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof text);
  Log(kErr, "Video encoder ffv1 for GIF failed %s: %s\n", step, text);
  m_pStatistics->WriteFailed(CWriterStatistics::WriteFailureCode(AVUNERROR(error)));
}

}  // namespace ov::enc::gif
