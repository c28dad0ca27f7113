#include "output/WMVMediaObject.h"

#include <algorithm>
#include <string>

#include "core/Log.h"
#include "pixels/Pixels.h"
#include "platform/Thread.h"

using ov::kErr;
using ov::kMsg;
using namespace ov::wmv;

std::atomic<int32_t> CWMVMediaObject::s_nEncodeDelayMsForTesting{0};

namespace {

constexpr int kMaxSide = 16384;

// The WMV9 encoder settings on wmv2:
//   _VBRENABLED, _VBRQUALITY: wmv2 has no VBR-by-quality mode; a fixed
//     quantiser is its counterpart. Quality 75 (small files) to 98:
//     75 -> 12   80 -> 9   85 -> 6   90 -> 4   95 -> 3   98 -> 2
//   _PASSESUSED 1: libavcodec encodes in one pass.
//   _KEYDIST: WriteFrame asks for a key frame at most a second after the last.
//   _CRISP, _VIDEOWINDOW, _COMPLEXITYEX, _INTERLACEDCODINGENABLED,
//   _ASFOVERHEADPERFRAME, _LIVEENCODE: WMV3 controls with no wmv2 option.
int Quantiser(int32_t vbrQuality) {
  if (vbrQuality >= 98) return 2;
  if (vbrQuality >= 95) return 3;
  if (vbrQuality >= 90) return 4;
  if (vbrQuality >= 85) return 6;
  if (vbrQuality >= 80) return 9;
  return 12;
}

// The last reference that libavcodec drops gives the slice back.
void ReleaseSlice(void* opaque, uint8_t*) { static_cast<CMediaBuffer*>(opaque)->Release(); }

}  // namespace

CWMVMediaObject::CWMVMediaObject(CWriterStatistics* pStatistics, CFrameRateControl* pRateControl)
    : CVideoCodec(pStatistics, pRateControl), CWmvWriter(pStatistics) {}

CWMVMediaObject::~CWMVMediaObject() {
  Stop();
  const int64_t output = m_nOutputFrames.load();
  if (output > 0) {
    const int64_t us = std::chrono::duration_cast<std::chrono::microseconds>(m_EncodeTime).count();
    WriteLog(kMsg,
             "WMV: Frame Input=%lld, Frame Output=%lld, Frame codec time=%dms, Frame rate: "
             "%dframe/1000s \n",
             static_cast<long long>(m_nInputFrames), static_cast<long long>(output),
             static_cast<int>(us / 1000 / output),
             static_cast<int>(us > 0 ? output * 1000000 * 1000 / us : 0));
    WriteLog(kMsg, "WMV: Capture waited %lld times for a free buffer, %lldms in all\n",
             static_cast<long long>(m_nCaptureWaits), static_cast<long long>(m_nCaptureWaitMs));
  }
  // The encoder may still hold slices; they come back through ReturnBuffer.
  avcodec_free_context(&m_pMediaObject);
  av_frame_free(&m_pFrame);
  av_packet_free(&m_pPacket);
}

HRESULT CWMVMediaObject::Initialize(int32_t, int32_t width, int32_t height, int32_t frameRate,
                                    int32_t quality, const wchar_t* file) {
  if (m_pMediaObject || width < 1 || height < 1 || width > kMaxSide || height > kMaxSide ||
      frameRate < 1 || !file || !*file) {
    WriteLog(kErr, "Bad WMV encoder settings: %dx%d, %d fps\n", width, height, frameRate);
    return E_INVALIDARG;
  }
  m_nWidth = (width + 1) & ~1;
  m_nHeight = (height + 1) & ~1;
  const int32_t vbrQuality = VbrQuality(quality);
  HRESULT hr;
  if (OV_FAILED(hr, OpenEncoder(frameRate, vbrQuality))) return hr;
  if (OV_FAILED(hr, VideoInitialize(m_pMediaObject, frameRate, vbrQuality))) return hr;
  if (OV_FAILED(hr, Start(file))) return hr;
  if (FAILED(hr = BuildPool())) return hr;
  m_hThread = std::thread(&CWMVMediaObject::EncoderThread, this);
  return S_OK;
}

HRESULT CWMVMediaObject::OpenEncoder(int32_t frameRate, int32_t vbrQuality) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_WMV2);
  m_pFrame = av_frame_alloc();
  m_pPacket = av_packet_alloc();
  if (!codec || !m_pFrame || !m_pPacket) return E_FAIL;
  m_pMediaObject = avcodec_alloc_context3(codec);
  if (!m_pMediaObject) return E_OUTOFMEMORY;
  AVCodecContext& c = *m_pMediaObject;
  c.width = m_nWidth;
  c.height = m_nHeight;
  c.pix_fmt = AV_PIX_FMT_YUV420P;
  // The stream header has five bits for the rate; the true times are the
  // capture's, carried beside the encoder.
  c.time_base = {1, std::min(frameRate, 30)};
  c.framerate = {frameRate, 1};
  c.gop_size = 600;  // key frames are asked for by time, below
  c.max_b_frames = 0;
  c.thread_count = 1;
  c.flags |= AV_CODEC_FLAG_QSCALE;
  c.global_quality = FF_QP2LAMBDA * Quantiser(vbrQuality);
  int error = avcodec_open2(m_pMediaObject, codec, nullptr);
  if (error < 0) return E_FAIL;
  WriteLog(kMsg, "WMV encoder wmv2 %dx%d, %d fps, VBR quality %d\n", m_nWidth, m_nHeight, frameRate,
           vbrQuality);
  return S_OK;
}

HRESULT CWMVMediaObject::BuildPool() {
  const int64_t w16 = (m_nWidth + 15) & ~15, h16 = (m_nHeight + 15) & ~15;
  const int64_t slice = (w16 * h16 * 3 / 2 + 63) & ~int64_t{63};
  if (slice * kBufferCount > INT32_MAX ||
      !m_Pool.Allocate(static_cast<int32_t>(slice * kBufferCount))) {
    WriteLog(kErr, "Out of memory!\n");
    return E_FAIL;
  }
  m_nSliceSize = static_cast<uint32_t>(slice);
  for (int i = 0; i < kBufferCount; ++i)
    m_Buffers[i] = std::make_unique<CMediaBuffer>(this, m_Pool.Data() + slice * i, m_nSliceSize);
  // The first slice on top.
  for (int i = 0; i < kBufferCount; ++i) m_FreeStack[i] = m_Buffers[kBufferCount - 1 - i].get();
  m_nFree = kBufferCount;
  return S_OK;
}

int32_t CWMVMediaObject::WriteFrame(const uint8_t* frame, int32_t stride, int64_t time,
                                    BOOL keyFrame, BOOL unchanged) {
  // An unchanged frame is neither encoded nor counted: its time is a gap.
  if (unchanged) return 1;
  if (!m_hThread.joinable() || !frame || stride < m_nWidth * 4) return 0;
  ++m_nInputFrames;
  CMediaBuffer* pBuffer = TakeFreeBuffer();
  if (!pBuffer) return 0;
  uint8_t* data = pBuffer->GetBuffer();
  ImageConvert_BGR32_to_I420(data, m_nWidth, frame, stride, m_nWidth, m_nHeight);
  pBuffer->m_nTimestamp = time;
  uint32_t flags = 0;
  if (m_bFirstFrame) {
    flags = WM_SF_CLEANPOINT | WM_SF_DISCONTINUITY;
    m_bFirstFrame = false;
  }
  if (keyFrame || time - m_nLastKeyTime >= WMC_Video_KeyframeDistance * REF_TIME_UNITS)
    flags |= WM_SF_CLEANPOINT;
  if (flags & WM_SF_CLEANPOINT) m_nLastKeyTime = time;
  pBuffer->m_dwFlags = flags;
  Queue(pBuffer);  // the capture's reference goes with it
  return 0;
}

CMediaBuffer* CWMVMediaObject::TakeFreeBuffer() {
  std::unique_lock<std::mutex> lock(m_csFree);
  if (m_nFree == 0) {
    const Clock::time_point start = Clock::now();
    m_hBufferReturned.wait(lock, [this] { return m_nFree > 0 || m_bStop.load(); });
    ++m_nCaptureWaits;
    m_nCaptureWaitMs +=
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  }
  if (m_nFree == 0) return nullptr;
  return m_FreeStack[--m_nFree];
}

void CWMVMediaObject::ReturnBuffer(CMediaBuffer* pBuffer) {
  {
    std::lock_guard<std::mutex> lock(m_csFree);
    m_FreeStack[m_nFree++] = pBuffer;
  }
  m_hBufferReturned.notify_one();
}

void CWMVMediaObject::Queue(CMediaBuffer* pBuffer) {
  {
    std::lock_guard<std::mutex> lock(m_csFree);
    m_WorkQueue[(m_nWorkHead + m_nWorkCount) % kBufferCount] = pBuffer;
    ++m_nWorkCount;
  }
  m_hWork.notify_one();
}

void CWMVMediaObject::Finish() {
  Stop();
  HRESULT hr = EndWriting();
  if (FAILED(hr) && hr != E_FAIL) m_pStatistics->WriteFailed(hr);
}

void CWMVMediaObject::Stop() {
  {
    std::lock_guard<std::mutex> lock(m_csFree);
    m_bStop.store(true);
  }
  m_hWork.notify_all();
  m_hBufferReturned.notify_all();
  if (m_hThread.joinable()) m_hThread.join();
}

void CWMVMediaObject::EncoderThread() {
  ov::SetCurrentThreadName("ov-wmv-encoder");
  for (;;) {
    CMediaBuffer* pBuffer;
    {
      std::unique_lock<std::mutex> lock(m_csFree);
      m_hWork.wait(lock, [this] { return m_nWorkCount > 0 || m_bStop.load(); });
      if (m_nWorkCount == 0) break;
      pBuffer = m_WorkQueue[m_nWorkHead];
      m_nWorkHead = (m_nWorkHead + 1) % kBufferCount;
      --m_nWorkCount;
    }
    if (m_bFailed) {
      pBuffer->Release();
      continue;
    }
    const Clock::time_point start = Clock::now();
    Encode(pBuffer);
    Account(Clock::now() - start);
  }
  // What the encoder still holds comes out now.
  if (!m_bFailed && avcodec_send_frame(m_pMediaObject, nullptr) >= 0) Drain();
}

void CWMVMediaObject::Encode(CMediaBuffer* pBuffer) {
  if (int delay = s_nEncodeDelayMsForTesting.load())
    std::this_thread::sleep_for(std::chrono::milliseconds(delay));
  const int64_t sequence = m_nSequence++;
  const size_t slot = static_cast<size_t>(sequence) % m_Times.size();
  m_Times[slot] = pBuffer->m_nTimestamp;
  m_Discontinuity[slot] = (pBuffer->m_dwFlags & WM_SF_DISCONTINUITY) != 0;

  uint8_t* data = pBuffer->GetBuffer();
  const size_t luma = static_cast<size_t>(m_nWidth) * m_nHeight;
  AVFrame& f = *m_pFrame;
  f.format = AV_PIX_FMT_YUV420P;
  f.width = m_nWidth;
  f.height = m_nHeight;
  f.data[0] = data;
  f.data[1] = data + luma;
  f.data[2] = data + luma * 5 / 4;
  f.linesize[0] = m_nWidth;
  f.linesize[1] = f.linesize[2] = m_nWidth / 2;
  f.pts = sequence;
  f.pict_type = (pBuffer->m_dwFlags & WM_SF_CLEANPOINT) ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  f.buf[0] = av_buffer_create(data, pBuffer->GetMaxLength(), ReleaseSlice, pBuffer, 0);
  if (!f.buf[0]) {
    pBuffer->Release();
    WriteLog(kErr, "Failed(0x%x) to ProcessInput(time=%lld), Frame Input=%lld, Frame Output=%lld\n",
             static_cast<unsigned>(E_OUTOFMEMORY), static_cast<long long>(pBuffer->m_nTimestamp),
             static_cast<long long>(sequence + 1), static_cast<long long>(m_nOutputFrames.load()));
    return;
  }
  int error = avcodec_send_frame(m_pMediaObject, m_pFrame);
  av_frame_unref(m_pFrame);
  if (error < 0) {
    WriteLog(kErr, "Failed(0x%x) to ProcessInput(time=%lld), Frame Input=%lld, Frame Output=%lld\n",
             static_cast<unsigned>(E_FAIL), static_cast<long long>(m_Times[slot]),
             static_cast<long long>(sequence + 1), static_cast<long long>(m_nOutputFrames.load()));
    return;
  }
  Drain();
}

// Writes every packet that the encoder has ready; false when the file
// cannot be written any more.
bool CWMVMediaObject::Drain() {
  for (;;) {
    int error = avcodec_receive_packet(m_pMediaObject, m_pPacket);
    if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) return true;
    if (error < 0) {
      WriteLog(kErr, "Failed(0x%x) to ProcessOutput\n", static_cast<unsigned>(E_FAIL));
      return true;
    }
    const size_t slot = static_cast<size_t>(m_pPacket->pts) % m_Times.size();
    uint32_t dwFlags = (m_pPacket->flags & AV_PKT_FLAG_KEY) ? WM_SF_CLEANPOINT : 0;
    if (m_Discontinuity[slot]) dwFlags |= WM_SF_DISCONTINUITY;
    HRESULT hr = InputStream(m_Times[slot], REF_MSEC_UNITS, dwFlags, m_pPacket);
    av_packet_unref(m_pPacket);
    if (FAILED(hr)) {
      WriteLog(kErr,
               "Failed(0x%x) in InputStream(OutputBuffer.rtTimestamp, REF_MSEC_UNITS, dwFlags, "
               "pOutBuffer), FILE:%s, LINE:%d\n",
               static_cast<unsigned>(hr), OV_FILE, __LINE__);
      m_bFailed = true;
      m_pStatistics->WriteFailed(hr);
      return false;
    }
    m_nOutputFrames.fetch_add(1);
  }
}

void CWMVMediaObject::Account(Clock::duration spent) {
  m_EncodeTime += spent;
  const int64_t output = m_nOutputFrames.load();
  if (output > 16 && output % 16 == 0) {
    const int64_t us = std::chrono::duration_cast<std::chrono::microseconds>(m_EncodeTime).count();
    m_pRateControl->ReportFrameTime(static_cast<uint32_t>(us / 1000 / output));
  }
}
