// Frames are shown when they are due at the clock, with a tolerance of a
// thirtieth of a second either way: a frame that much ahead is shown early,
// and frames further behind are read and passed over, so that a reader that
// fell behind catches up in one call.
#include "playback/WMVVideoReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include "core/Log.h"
#include "platform/Text.h"

namespace {

constexpr REFERENCE_TIME kTolerance = 333333;

}  // namespace

CWMVVideoReader::CWMVVideoReader(int32_t nIndex, const wchar_t* pMediaFile,
                                 REFERENCE_TIME nDuration, CMediaVideoRender* pRender)
    : CBaseMediaReader(nIndex, pMediaFile), m_pRender(pRender), m_nDuration(nDuration) {}

CWMVVideoReader::~CWMVVideoReader() {
  std::free(m_pPixels);
  sws_freeContext(m_pScaler);
  av_frame_free(&m_pHeld);
  av_frame_free(&m_pNext);
  av_packet_free(&m_pPacket);
  avcodec_free_context(&m_pCodec);
  avformat_close_input(&m_pFormat);
}

HRESULT CWMVVideoReader::Initialize() {
  const std::string path = ov::ToUtf8(m_pMediaFile);
  int error = avformat_open_input(&m_pFormat, path.c_str(), nullptr, nullptr);
  if (error < 0) {
    WriteLog(ov::kErr, "Failed(0x%x) to open file:%ls\n", static_cast<unsigned>(error),
             m_pMediaFile);
    return E_FAIL;
  }
  const AVCodec* codec = nullptr;
  if (avformat_find_stream_info(m_pFormat, nullptr) < 0 ||
      (m_nStream = av_find_best_stream(m_pFormat, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0)) < 0 ||
      !codec) {
    WriteLog(ov::kErr, "ERROR majortype !\n");
    return E_FAIL;
  }
  m_pCodec = avcodec_alloc_context3(codec);
  m_pPacket = av_packet_alloc();
  m_pNext = av_frame_alloc();
  m_pHeld = av_frame_alloc();
  if (!m_pCodec || !m_pPacket || !m_pNext || !m_pHeld ||
      avcodec_parameters_to_context(m_pCodec, m_pFormat->streams[m_nStream]->codecpar) < 0 ||
      avcodec_open2(m_pCodec, codec, nullptr) < 0) {
    WriteLog(ov::kErr, "Failed to open the decoder of %ls\n", m_pMediaFile);
    return E_FAIL;
  }
  const int32_t width = m_pCodec->width, height = m_pCodec->height;
  m_nStride = width * 4;
  const size_t bytes = (static_cast<size_t>(m_nStride) * height + 63) / 64 * 64;
  m_pPixels = static_cast<uint8_t*>(std::aligned_alloc(64, bytes));
  if (!m_pPixels || width <= 0 || height <= 0) return E_FAIL;
  return m_pRender->SetVideoFormat(m_nIndex, &MEDIASUBTYPE_RGB32, width, height);
}

bool CWMVVideoReader::GetNextSample() {
  for (;;) {
    const int got = avcodec_receive_frame(m_pCodec, m_pNext);
    if (got == 0) {
      const AVRational base = m_pFormat->streams[m_nStream]->time_base;
      const int64_t pts = m_pNext->best_effort_timestamp;
      m_nNextTime = pts == AV_NOPTS_VALUE ? 0 : av_rescale_q(pts, base, AVRational{1, 10000000});
      return true;
    }
    if (got == AVERROR_EOF || m_bDraining) return false;
    int read;
    while ((read = av_read_frame(m_pFormat, m_pPacket)) >= 0 &&
           m_pPacket->stream_index != m_nStream)
      av_packet_unref(m_pPacket);
    if (read < 0) {
      m_bDraining = true;
      avcodec_send_packet(m_pCodec, nullptr);
    } else {
      avcodec_send_packet(m_pCodec, m_pPacket);
      av_packet_unref(m_pPacket);
    }
  }
}

void CWMVVideoReader::Show(AVFrame* frame) {
  m_pScaler = sws_getCachedContext(
      m_pScaler, frame->width, frame->height, static_cast<AVPixelFormat>(frame->format),
      m_pCodec->width, m_pCodec->height, AV_PIX_FMT_BGR0, SWS_BILINEAR, nullptr, nullptr, nullptr);
  if (!m_pScaler) return;
  uint8_t* dst[1] = {m_pPixels};
  const int dstStride[1] = {m_nStride};
  sws_scale(m_pScaler, frame->data, frame->linesize, 0, frame->height, dst, dstStride);
  m_pRender->RenderFrame(m_nIndex, m_pPixels, m_nStride);
}

void CWMVVideoReader::ShowNext() {
  Show(m_pNext);
  av_frame_unref(m_pNext);
}

void CWMVVideoReader::Hold() {
  av_frame_unref(m_pHeld);
  av_frame_move_ref(m_pHeld, m_pNext);
  m_nHeldTime = m_nNextTime;
  m_bHeld = true;
}

void CWMVVideoReader::ShowFirst() {
  av_frame_unref(m_pHeld);
  m_bHeld = false;
  if (!GetNextSample()) {
    m_bExhausted = true;
    return;
  }
  m_bExhausted = false;
  ShowNext();
}

int CWMVVideoReader::Update(REFERENCE_TIME t) {
  int r = 1;
  if (m_bHeld) {
    if (m_nHeldTime >= t + kTolerance) return r;
    Show(m_pHeld);
    av_frame_unref(m_pHeld);
    m_bHeld = false;
    r = 0;
  }
  while (!m_bExhausted) {
    if (!GetNextSample()) {
      m_bExhausted = true;
      break;
    }
    const REFERENCE_TIME s = m_nNextTime;
    if (s + kTolerance < t) {
      Hold();  // too old: kept unseen unless nothing newer comes
      continue;
    }
    if (s <= t) {
      av_frame_unref(m_pHeld);
      m_bHeld = false;
      ShowNext();
      return 0;
    }
    if (m_bHeld) Show(m_pHeld);
    if (m_bHeld) r = 0;
    Hold();
    return r;
  }
  if (m_bHeld && m_nHeldTime < t) {
    Show(m_pHeld);
    av_frame_unref(m_pHeld);
    m_bHeld = false;
    r = 0;
  }
  if (!m_bHeld) bEnded = 1;
  return r;
}

int CWMVVideoReader::ShowAt(REFERENCE_TIME t) {
  if (m_bHeld && m_nHeldTime > t) {
    av_frame_unref(m_pHeld);
    m_bHeld = false;
    return 1;
  }
  if (m_bExhausted) {
    if (!m_bHeld) return 1;
    Show(m_pHeld);
    return 0;
  }
  while (GetNextSample()) {
    if (m_nNextTime < t) {
      Hold();
    } else if (m_nNextTime == t) {
      av_frame_unref(m_pHeld);
      m_bHeld = false;
      ShowNext();
      return 0;
    } else {
      av_frame_unref(m_pNext);
      if (!m_bHeld) return 1;
      Show(m_pHeld);
      return 0;
    }
  }
  m_bExhausted = true;
  if (!m_bHeld) return 1;
  Show(m_pHeld);
  return 0;
}

REFERENCE_TIME CWMVVideoReader::Seek(REFERENCE_TIME t) {
  av_frame_unref(m_pHeld);
  m_bHeld = false;
  m_bExhausted = false;
  m_bDraining = false;
  bEnded = 0;
  t = std::clamp<REFERENCE_TIME>(t, 0, m_nDuration);
  const AVRational base = m_pFormat->streams[m_nStream]->time_base;
  const int64_t target = av_rescale_q(t, AVRational{1, 10000000}, base);
  if (av_seek_frame(m_pFormat, m_nStream, target, AVSEEK_FLAG_BACKWARD) < 0) {
    m_bExhausted = true;
    return t;
  }
  avcodec_flush_buffers(m_pCodec);
  // Decoding starts at the key frame before t; the frame shown first is the
  // one at t.
  while (GetNextSample()) {
    if (m_nNextTime + kTolerance / 10 >= t) {
      Show(m_pNext);
      av_frame_unref(m_pNext);
      return t;
    }
    av_frame_unref(m_pNext);
  }
  m_bExhausted = true;
  return t;
}
