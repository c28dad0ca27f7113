#include "encode/libs/LibavVideoCodec.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "encode/libs/EncoderLog.h"
#include "formats/FrameIndex.h"
#include "platform/Files.h"

extern "C" {
#include <libavutil/imgutils.h>
}

namespace ov::enc {

namespace {

constexpr int kMaxSide = 16384;
constexpr int kDefaultFrameRate = 30;
constexpr int kMaxFrameRate = 240;
constexpr int kPictureAlign = 64;

const char* BackendName(Backend backend) {
  switch (backend) {
    case Backend::Software:
      return "software";
    case Backend::Vaapi:
      return "VA-API";
    case Backend::Nvenc:
      return "NVENC";
  }
  return "?";
}

std::string AvErrorText(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof text);
  return text;
}

}  // namespace

CLibavVideoCodec::CLibavVideoCodec(std::vector<BackendChoice> backends,
                                   CWriterStatistics* pStatistics, CFrameRateControl* pRateControl)
    : CVideoCodec(pStatistics, pRateControl), m_backends(std::move(backends)) {}

CLibavVideoCodec::~CLibavVideoCodec() {
  Stop();
  m_encoder.Close();
  for (Slot& slot : m_slots) av_frame_free(&slot.picture);
  av_frame_free(&m_previous);
  av_packet_free(&m_packet);
  av_buffer_pool_uninit(&m_pool);
}

HRESULT CLibavVideoCodec::Initialize(int32_t codecType, int32_t width, int32_t height,
                                     int32_t frameRate, int32_t quality, const wchar_t* file) {
  if (m_initializeCalled) return E_FAIL;
  m_initializeCalled = true;
  if (codecType < kH264 || codecType > kMpeg2 || width < 1 || height < 1 || width > kMaxSide ||
      height > kMaxSide || !file || !*file) {
    Log(kErr, "Bad encoder settings: codec %d, %dx%d\n", codecType, width, height);
    return E_INVALIDARG;
  }
  m_width = width;
  m_height = height;
  m_codedWidth = CodedSide(codecType, width);
  m_codedHeight = CodedSide(codecType, height);
  if (frameRate < 1) frameRate = kDefaultFrameRate;
  frameRate = std::min(frameRate, kMaxFrameRate);
  EncoderConfig config{codecType,     m_codedWidth,
                       m_codedHeight, frameRate,
                       quality,       EncoderThreads(m_codedWidth, m_codedHeight, frameRate)};
  if (!OpenEncoder(config)) return E_FAIL;
  if (!m_converter.Init(width, height, m_encoder.InputFormat()) || !AllocatePictures()) {
    Log(kErr, "Encoder pictures of %dx%d could not be made\n", m_codedWidth, m_codedHeight);
    m_encoder.Close();
    return E_OUTOFMEMORY;
  }

  std::string path = ov::ToUtf8(file);
  if (int error = m_writer.Create(path, codecType, m_codedWidth, m_codedHeight, frameRate)) {
    Log(kErr, "Failed(%d) to create file:%s\n", error, path.c_str());
    m_writer.Close();
    m_encoder.Close();
    return E_FAIL;
  }
  m_thread = std::thread(&CLibavVideoCodec::EncoderLoop, this);
  return S_OK;
}

bool CLibavVideoCodec::OpenEncoder(const EncoderConfig& config) {
  for (const BackendChoice& choice : m_backends) {
    const char* name = EncoderName(choice.backend, config.codecType);
    if (!name) continue;
    int error = m_encoder.Open(choice, config);
    if (error >= 0) {
      Log(kMsg, "Video encoder %s (%s) %dx%d, %d fps, quality %d, %d threads\n", name,
          BackendName(choice.backend), config.width, config.height, config.frameRate,
          config.quality, config.threads);
      return true;
    }
    Log(kWan, "Video encoder %s %dx%d did not open: %s\n", name, config.width, config.height,
        AvErrorText(error).c_str());
  }
  Log(kErr, "No video encoder opened for codec type %d\n", config.codecType);
  return false;
}

// The picture buffers come from a pool that is filled once here: libavcodec
// lets an encoder keep a reference to a picture after it is sent, and the
// pool then hands out a free buffer instead of a fresh allocation.
bool CLibavVideoCodec::AllocatePictures() {
  int size =
      av_image_get_buffer_size(m_encoder.InputFormat(), m_codedWidth, m_codedHeight, kPictureAlign);
  if (size < 0) return false;
  m_pool = av_buffer_pool_init(static_cast<size_t>(size) + kPictureAlign, av_buffer_alloc);
  m_packet = av_packet_alloc();
  m_previous = av_frame_alloc();
  if (!m_pool || !m_packet || !m_previous) return false;
  for (Slot& slot : m_slots) {
    slot.picture = av_frame_alloc();
    if (!slot.picture || !AttachBuffer(slot.picture)) return false;
  }
  // Two more buffers for pictures the encoder still holds.
  AVFrame* spare[2] = {av_frame_alloc(), av_frame_alloc()};
  bool ok = true;
  for (AVFrame*& picture : spare) ok = ok && picture && AttachBuffer(picture);
  for (AVFrame*& picture : spare) av_frame_free(&picture);
  for (Slot& slot : m_slots) av_frame_unref(slot.picture);
  return ok;
}

bool CLibavVideoCodec::AttachBuffer(AVFrame* picture) {
  AVBufferRef* buffer = av_buffer_pool_get(m_pool);
  if (!buffer) return false;
  picture->buf[0] = buffer;
  picture->format = m_encoder.InputFormat();
  picture->width = m_codedWidth;
  picture->height = m_codedHeight;
  return av_image_fill_arrays(picture->data, picture->linesize, buffer->data,
                              m_encoder.InputFormat(), m_codedWidth, m_codedHeight,
                              kPictureAlign) >= 0;
}

void CLibavVideoCodec::SetChangedArea(int32_t left, int32_t top, int32_t right, int32_t bottom) {
  m_changed = {left, top, right, bottom};
}

int32_t CLibavVideoCodec::WriteFrame(const uint8_t* frame, int32_t stride, int64_t time,
                                     BOOL keyFrame, BOOL unchanged) {
  const PictureArea changed = m_changed;
  m_changed = {0, 0, INT32_MAX, INT32_MAX};
  // An unchanged frame adds nothing to the stream; the index keeps the
  // times of the frames that are there, so the file becomes variable-rate.
  if (unchanged && !keyFrame) return 1;
  if (!m_thread.joinable() || !frame || stride < m_width * 4 || m_failed.load()) return 0;
  Slot* slot = WaitForFreeSlot();
  if (!slot) return 0;
  AVFrame* picture = slot->picture;
  if (!AttachBuffer(picture)) {
    av_frame_unref(picture);
    ForgetPictures();  // the next frame's hint is not about this one
    return 0;
  }
  PictureArea area{0, 0, m_codedWidth, m_codedHeight};
  if (m_previous->buf[0]) {
    area = m_converter.TargetArea(changed, m_codedWidth, m_codedHeight);
    auto [staleTop, staleBottom] = StaleRows(picture->buf[0]->data);
    if (area.left == 0 && area.right == m_codedWidth) {
      // Whole rows of the area are converted anyway.
      if (area.top <= staleTop) staleTop = std::max(staleTop, area.bottom);
      if (area.bottom >= staleBottom) staleBottom = std::min(staleBottom, area.top);
    }
    m_converter.CopyRows(*m_previous, picture, staleTop, staleBottom);
  }
  m_converter.ConvertArea(frame, stride, picture, area);
  Remember(picture->buf[0]->data, {area.top, area.bottom});
  slot->changed = area;
  av_frame_unref(m_previous);
  if ((m_previous->buf[0] = av_buffer_ref(picture->buf[0]))) {
    memcpy(m_previous->data, picture->data, sizeof picture->data);
    memcpy(m_previous->linesize, picture->linesize, sizeof picture->linesize);
  } else {
    ForgetPictures();
  }
  slot->time = time;
  slot->key = keyFrame || !m_sentAny;
  m_sentAny = true;
  Publish();
  return 0;
}

// The rows in which the picture that a buffer holds may differ from the last
// picture: those changed by the pictures made after it.
std::pair<int, int> CLibavVideoCodec::StaleRows(const uint8_t* data) const {
  int64_t number = -1;
  for (const HeldPicture& held : m_held)
    if (held.data == data) number = held.number;
  if (number < 0 || m_pictures - number > static_cast<int64_t>(kHistory)) return {0, m_codedHeight};
  int top = m_codedHeight, bottom = 0;
  for (int64_t n = number + 1; n < m_pictures; ++n) {
    top = std::min(top, m_changedRows[n % kHistory].first);
    bottom = std::max(bottom, m_changedRows[n % kHistory].second);
  }
  return {top, bottom};
}

void CLibavVideoCodec::Remember(const uint8_t* data, std::pair<int, int> rows) {
  HeldPicture* slot = &m_held[0];
  for (HeldPicture& held : m_held) {
    if (held.data == data) {
      slot = &held;
      break;
    }
    if (held.number < slot->number) slot = &held;
  }
  *slot = {data, m_pictures};
  m_changedRows[m_pictures % kHistory] = rows;
  ++m_pictures;
}

void CLibavVideoCodec::ForgetPictures() {
  av_frame_unref(m_previous);
  m_held.fill({});
}

CLibavVideoCodec::Slot* CLibavVideoCodec::WaitForFreeSlot() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_emptied.wait(lock, [this] { return m_count < kQueueDepth || m_failed.load(); });
  if (m_failed.load() || m_finishing) return nullptr;
  // Only this thread adds, so the slot stays free after the lock is let go.
  return &m_slots[(m_head + m_count) % kQueueDepth];
}

void CLibavVideoCodec::Publish() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_count;
  }
  m_filled.notify_one();
}

void CLibavVideoCodec::Finish() { Stop(); }

void CLibavVideoCodec::Stop() {
  if (!m_thread.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_finishing = true;
  }
  m_filled.notify_one();
  m_thread.join();
}

void CLibavVideoCodec::EncoderLoop() {
  pthread_setname_np(pthread_self(), "ov-encoder");
  for (;;) {
    Slot* slot;
    {
      std::unique_lock<std::mutex> lock(m_mutex);
      m_filled.wait(lock, [this] { return m_count > 0 || m_finishing; });
      if (m_count == 0) break;
      slot = &m_slots[m_head];
    }
    if (!m_failed.load()) Encode(*slot);
    av_frame_unref(slot->picture);
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_head = (m_head + 1) % kQueueDepth;
      --m_count;
    }
    m_emptied.notify_one();
  }
  if (!m_failed.load()) Flush();
  if (int error = m_writer.Close()) Fail("closing the temp video", AVERROR(error));
  Log(kMsg, "Video encoder %s wrote %lld frames\n", m_encoder.Name(),
      static_cast<long long>(m_framesWritten));
}

void CLibavVideoCodec::Encode(Slot& slot) {
  auto start = std::chrono::steady_clock::now();
  int64_t ticks = TimeToTicks(slot.time);
  // Encoders want strictly rising time stamps; the index keeps the true ones.
  int64_t pts = m_encoder.PtsAreTicks() ? std::max(ticks, m_lastPts + 1) : m_frameNumber;
  m_lastPts = pts;
  ++m_frameNumber;
  if (m_pendingCount == kPendingTimes) {
    m_pendingHead = (m_pendingHead + 1) % kPendingTimes;
    --m_pendingCount;
  }
  m_pending[(m_pendingHead + m_pendingCount) % kPendingTimes] = {pts, ticks};
  ++m_pendingCount;

  int error = m_encoder.Send(slot.picture, pts, slot.key, slot.changed);
  if (error >= 0) error = WriteReadyPackets();
  if (error < 0 && error != AVERROR(EAGAIN)) {
    Fail("encoding a frame", error);
    return;
  }
  m_frameTime.Account(m_pRateControl, std::chrono::steady_clock::now() - start);
}

void CLibavVideoCodec::Flush() {
  int error = m_encoder.Send(nullptr, 0, false);
  if (error >= 0) error = WriteReadyPackets();
  if (error < 0 && error != AVERROR_EOF) Fail("draining the encoder", error);
}

int CLibavVideoCodec::WriteReadyPackets() {
  for (;;) {
    int error = m_encoder.Receive(m_packet);
    if (error < 0) return error;
    bool key = (m_packet->flags & AV_PKT_FLAG_KEY) != 0;
    int64_t ticks = TicksOf(m_packet->pts);
    error = m_writer.Write(m_packet->data, static_cast<size_t>(m_packet->size), ticks, key);
    int64_t size = m_packet->size;
    av_packet_unref(m_packet);
    if (error) return AVERROR(error);
    ++m_framesWritten;
    m_pStatistics->AddBytes(size);
    m_pStatistics->AddFrame();
  }
}

// Packets leave in the order the pictures went in (no B-frames), so the
// time of a packet is at the front of the pending list; pictures that an
// encoder dropped are passed over.
int64_t CLibavVideoCodec::TicksOf(int64_t pts) {
  while (m_pendingCount > 0) {
    PendingTime pending = m_pending[m_pendingHead];
    if (pending.pts > pts) break;
    m_pendingHead = (m_pendingHead + 1) % kPendingTimes;
    --m_pendingCount;
    if (pending.pts == pts) return pending.ticks;
  }
  return m_encoder.PtsAreTicks() ? pts : 0;
}

// The encoder thread goes on taking pictures and dropping them, so capture
// never waits on an encoder that has given up.
void CLibavVideoCodec::Fail(const char* step, int error) {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failed.exchange(true)) return;
  }
  m_emptied.notify_one();
  Log(kErr, "Video encoder %s failed %s: %s\n", m_encoder.Name(), step, AvErrorText(error).c_str());
  // Without its video the recording cannot go on.
  m_pStatistics->WriteFailed(CWriterStatistics::WriteFailureCode(AVUNERROR(error)));
}

}  // namespace ov::enc
