#include "encode/libs/X264Encoder.h"

#include <algorithm>
#include <cstring>

#include "formats/FrameIndex.h"

extern "C" {
#include <libavutil/error.h>
}

namespace ov::enc {

namespace {

constexpr int kMbSide = 16;
constexpr int kBt709 = 1;  // colour primaries, transfer and matrix alike

uint64_t Load64(const uint8_t* p) {
  uint64_t value;
  memcpy(&value, p, sizeof value);
  return value;
}

// Marks in changed[c] the block columns c, each block bytes wide, in which
// the first rows rows of two planes differ. A block stops at its first
// differing row, so a picture that changed everywhere costs little to compare.
void MarkDifferences(const uint8_t* a, ptrdiff_t aPitch, const uint8_t* b, ptrdiff_t bPitch,
                     int rows, int width, int block, uint8_t* changed) {
  for (int c = 0, x = 0; x < width; ++c, x += block) {
    if (changed[c]) continue;
    const int bytes = std::min(block, width - x);
    for (int row = 0; row < rows; ++row) {
      const uint8_t* p = a + row * aPitch + x;
      const uint8_t* q = b + row * bPitch + x;
      uint64_t diff = 0;
      if (bytes == block) {
        for (int i = 0; i < block; i += 8) diff |= Load64(p + i) ^ Load64(q + i);
      } else {
        diff = memcmp(p, q, bytes);
      }
      if (diff) {
        changed[c] = 1;
        break;
      }
    }
  }
}

}  // namespace

X264Encoder::~X264Encoder() { Close(); }

void X264Encoder::Close() {
  if (m_encoder) x264_encoder_close(m_encoder);
  m_encoder = nullptr;
  av_buffer_unref(&m_previous);
  m_payload = nullptr;
  m_payloadSize = 0;
  m_draining = false;
}

int X264Encoder::Open(const EncoderConfig& config) {
  Close();
  x264_param_t param;
  // ultrafast: the cheapest encode, as a recorder that runs beside the
  // user's work should be (superfast would save a quarter of the stream for
  // half as much CPU again). zerolatency: no look-ahead, slice threads.
  if (x264_param_default_preset(&param, "ultrafast", "zerolatency") < 0) return AVERROR(EINVAL);
  param.i_log_level = X264_LOG_NONE;
  param.i_csp = X264_CSP_I420;
  param.i_width = config.width;
  param.i_height = config.height;
  param.i_fps_num = static_cast<uint32_t>(config.frameRate);
  param.i_fps_den = 1;
  param.i_timebase_num = 1;
  param.i_timebase_den = static_cast<uint32_t>(kIndexClock);
  param.i_threads = config.threads;
  param.b_sliced_threads = 1;
  param.i_keyint_max = config.frameRate * kKeyIntervalSeconds;
  param.i_bframe = 0;
  param.rc.i_rc_method = X264_RC_CQP;
  param.rc.i_qp_constant = QualityFor(config.quality).x264Qp;
  param.vui.b_fullrange = 0;
  param.vui.i_colorprim = kBt709;
  param.vui.i_transfer = kBt709;
  param.vui.i_colmatrix = kBt709;
  param.b_annexb = 1;
  param.b_repeat_headers = 1;
  param.analyse.b_mb_info = 1;
  m_encoder = x264_encoder_open(&param);
  if (!m_encoder) return AVERROR_EXTERNAL;

  m_width = config.width;
  m_height = config.height;
  m_mbColumns = (config.width + kMbSide - 1) / kMbSide;
  m_mbRows = (config.height + kMbSide - 1) / kMbSide;
  m_mbInfo.assign(static_cast<size_t>(m_mbColumns) * m_mbRows, 0);
  m_changed.assign(static_cast<size_t>(m_mbColumns), 0);
  x264_picture_init(&m_output);
  return 0;
}

bool X264Encoder::MarkConstantBlocks(const AVFrame* picture, const PictureArea& changed) {
  if (!m_previous) return false;
  std::fill(m_mbInfo.begin(), m_mbInfo.end(), X264_MBINFO_CONSTANT);
  const int firstRow = std::clamp(changed.top / kMbSide, 0, m_mbRows);
  const int endRow =
      std::clamp((std::min(changed.bottom, m_height) + kMbSide - 1) / kMbSide, firstRow, m_mbRows);
  const int firstColumn = std::clamp(changed.left / kMbSide, 0, m_mbColumns);
  const int endColumn = std::clamp((std::min(changed.right, m_width) + kMbSide - 1) / kMbSide,
                                   firstColumn, m_mbColumns);
  const int lumaWidth = std::min(endColumn * kMbSide, m_width) - firstColumn * kMbSide;
  for (int mbRow = firstRow; mbRow < endRow; ++mbRow) {
    std::fill(m_changed.begin(), m_changed.end(), 0);
    const int lumaRows = std::min(kMbSide, m_height - mbRow * kMbSide);
    for (int plane = 0; plane < 3; ++plane) {
      const int side = plane == 0 ? kMbSide : kMbSide / 2;
      const int top = mbRow * side, left = firstColumn * side;
      const ptrdiff_t pitch = picture->linesize[plane];
      const ptrdiff_t previousPitch = m_previousPitches[plane];
      MarkDifferences(picture->data[plane] + top * pitch + left, pitch,
                      m_previousPlanes[plane] + top * previousPitch + left, previousPitch,
                      plane == 0 ? lumaRows : lumaRows / 2, plane == 0 ? lumaWidth : lumaWidth / 2,
                      side, m_changed.data());
    }
    uint8_t* flags = m_mbInfo.data() + static_cast<size_t>(mbRow) * m_mbColumns + firstColumn;
    for (int c = 0; c < endColumn - firstColumn; ++c)
      if (m_changed[c]) flags[c] = 0;
  }
  return true;
}

int X264Encoder::Send(const AVFrame* picture, int64_t pts, bool key, const PictureArea& changed) {
  if (!m_encoder) return AVERROR(EINVAL);
  m_payload = nullptr;
  m_payloadSize = 0;
  if (!picture) {
    m_draining = true;
    return 0;
  }
  if (!picture->buf[0] || picture->buf[1] || picture->width != m_width ||
      picture->height != m_height)
    return AVERROR(EINVAL);

  x264_picture_t input;
  x264_picture_init(&input);
  input.img.i_csp = X264_CSP_I420;
  input.img.i_plane = 3;
  for (int plane = 0; plane < 3; ++plane) {
    input.img.plane[plane] = picture->data[plane];
    input.img.i_stride[plane] = picture->linesize[plane];
  }
  input.i_pts = pts;
  input.i_type = key ? X264_TYPE_IDR : X264_TYPE_AUTO;
  // The encoder reads the flags while it codes this picture, inside the call
  // (no look-ahead, no frame threads), so one array serves every picture.
  if (!key && MarkConstantBlocks(picture, changed)) input.prop.mb_info = m_mbInfo.data();

  x264_nal_t* nals = nullptr;
  int count = 0;
  int size = x264_encoder_encode(m_encoder, &nals, &count, &input, &m_output);

  // This picture is what the next one is compared with.
  av_buffer_unref(&m_previous);
  m_previous = av_buffer_ref(picture->buf[0]);
  for (int plane = 0; plane < 3; ++plane) {
    m_previousPlanes[plane] = picture->data[plane];
    m_previousPitches[plane] = picture->linesize[plane];
  }
  if (!m_previous) return AVERROR(ENOMEM);
  return TakeOutput(size, nals);
}

int X264Encoder::TakeOutput(int size, const x264_nal_t* nals) {
  if (size < 0) return AVERROR_EXTERNAL;
  if (size > 0) {
    // The payloads of one picture's units follow each other in memory.
    m_payload = nals[0].p_payload;
    m_payloadSize = size;
    m_payloadPts = m_output.i_pts;
    m_payloadKey = m_output.b_keyframe != 0;
  }
  return 0;
}

int X264Encoder::Receive(AVPacket* packet) {
  if (!m_payload && m_draining) {
    if (!m_encoder || x264_encoder_delayed_frames(m_encoder) <= 0) return AVERROR_EOF;
    x264_nal_t* nals = nullptr;
    int count = 0;
    int error = TakeOutput(x264_encoder_encode(m_encoder, &nals, &count, nullptr, &m_output), nals);
    if (error < 0) return error;
    if (!m_payload) return AVERROR_EOF;
  }
  if (!m_payload) return AVERROR(EAGAIN);
  // Not reference-counted: unreferencing the packet leaves the memory alone.
  packet->data = const_cast<uint8_t*>(m_payload);
  packet->size = m_payloadSize;
  packet->pts = packet->dts = m_payloadPts;
  packet->flags = m_payloadKey ? AV_PKT_FLAG_KEY : 0;
  m_payload = nullptr;
  m_payloadSize = 0;
  return 0;
}

}  // namespace ov::enc
