// Capture clients on record streams. A loopback client records the monitor
// of its sink. Streams are pinned to their device: when it goes, they fail
// rather than move to another one.
//
// Packet times come from the server's timing of the stream: at the instant
// of a timing report, the frame at the report's write index is heard after
// the sink's latency (a monitor's samples are rendered ahead of being
// played) and was taken the source's latency earlier (a microphone's samples
// wait in the device). Frames after it follow at the nominal rate until the
// next report, so a device clock that drifts is followed report by report.
#include <pulse/timeval.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "platform/AudioClient.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/linux/PulseContext.h"

namespace ov {

namespace {

// Delivery in steps of this length. Every step wakes the client's thread,
// and with shared memory every step let go wakes it again; packets are
// timed by the server's reports, not by their arrival, so a longer step
// costs no accuracy.
constexpr pa_usec_t kFragmentUsec = 20000;
// A monitor's frames wait in the client's buffer until they are heard, and
// an idle sink renders up to two seconds ahead: the buffer holds at least
// this much, whatever the reader asked for (the server caps it at 4 MiB).
constexpr pa_usec_t kLeastBufferUsec = 4000000;
constexpr int64_t kTimingRefreshUsec = 100000;
// With nothing to read, the reader asks the server's thread (which costs
// both threads a wake-up) no more often than this, to notice a failed stream.
constexpr int64_t kHealthCheck100ns = 500000;

class MonotonicClock final : public AudioClock {
 public:
  int64_t Now() override { return MonotonicTime100ns(); }
  void Sleep(uint32_t ms) override { SleepMs(ms); }
};

MonotonicClock g_monotonicClock;

struct CaptureState {
  std::unique_ptr<PulseContext> context;
  AudioFlow flow = AudioFlow::Render;
  PulseDevice device;
  pa_stream* stream = nullptr;
  pa_sample_spec sampleFormat{};
  uint32_t frameBytes = 0;
  // The peeked fragment and how much of it was released already.
  const uint8_t* peeked = nullptr;
  size_t peekedBytes = 0;
  size_t peekOffset = 0;
  // Stream index of the next byte to read: what was dropped, holes included.
  int64_t readIndex = 0;
  bool holding = false;   // a packet is out and the loop lock is held for it
  bool updating = false;  // a report of the stream's timing was asked for
  // Bytes readable as last seen under the lock, so that the reader's idle
  // rounds need neither the lock nor a wake-up of the server's thread.
  std::atomic<size_t> readable{0};
  int64_t lastLockedCheck = 0;  // the reader's own

  ~CaptureState() {
    if (!context) return;
    if (holding) pa_threaded_mainloop_unlock(context->Loop());
    if (stream) ReleaseStream(*context, stream);
  }

  // With the lock held: when the byte at index is heard, or false while the
  // server has not reported its timing since samples began to flow. A report
  // from before that tells how far ahead the sink had rendered when the
  // stream was made, which is not where the stream's samples begin.
  bool HeardAt(int64_t index, int64_t* when) {
    const pa_timing_info* timing = pa_stream_get_timing_info(stream);
    const bool usable = timing && !timing->write_index_corrupt && timing->write_index > 0;
    const auto age = usable ? static_cast<int64_t>(pa_timeval_age(&timing->timestamp)) : 0;
    // The server's own schedule of reports slows down to one in 1.5 s; a
    // sink that changes its latency (a player starting, a device waking)
    // is seen sooner than that.
    if ((!usable || age > kTimingRefreshUsec) && !updating) {
      pa_operation* op = pa_stream_update_timing_info(stream, TimingArrived, this);
      if (op) pa_operation_unref(op);
      updating = op != nullptr;
    }
    if (!usable) return false;
    const int64_t now = MonotonicTime100ns();
    const int64_t bytesPerSecond = static_cast<int64_t>(pa_bytes_per_second(&sampleFormat));
    const int64_t ahead = (index - timing->write_index) * 10000000 / bytesPerSecond;
    *when = now - 10 * age + ahead - 10 * static_cast<int64_t>(timing->source_usec) +
            10 * static_cast<int64_t>(timing->sink_usec);
    return true;
  }

  static void TimingArrived(pa_stream*, int, void* state) {
    static_cast<CaptureState*>(state)->updating = false;
  }

  static void DataArrived(pa_stream*, size_t bytes, void* state) {
    static_cast<CaptureState*>(state)->readable.store(bytes, std::memory_order_release);
  }

  // With the lock held, after a drop.
  void NoteReadable() {
    const size_t bytes = pa_stream_readable_size(stream);
    readable.store(bytes == static_cast<size_t>(-1) ? 0 : bytes, std::memory_order_release);
  }
};

class PulseCaptureClient final : public AudioCaptureClient {
 public:
  explicit PulseCaptureClient(std::shared_ptr<CaptureState> state) : m_state(std::move(state)) {}

  HRESULT GetNextPacketSize(uint32_t* frames) override {
    CaptureState& s = *m_state;
    const int64_t now = MonotonicTime100ns();
    if (s.readable.load(std::memory_order_acquire) == 0 &&
        now - s.lastLockedCheck < kHealthCheck100ns) {
      *frames = 0;
      return S_OK;
    }
    s.lastLockedCheck = now;
    PulseLock lock(s.context->Loop());
    HRESULT hr = PulseContext::StreamHealth(s.stream);
    if (FAILED(hr)) return hr;
    const size_t bytes = pa_stream_readable_size(s.stream);
    if (bytes == static_cast<size_t>(-1)) return AUDCLNT_E_DEVICE_INVALIDATED;
    s.readable.store(bytes, std::memory_order_release);
    *frames = static_cast<uint32_t>((bytes - s.peekOffset) / s.frameBytes);
    return S_OK;
  }

  HRESULT GetBuffer(const BYTE** data, uint32_t* frames, uint32_t* flags,
                    int64_t* heardAt) override {
    CaptureState& s = *m_state;
    if (s.holding) return AUDCLNT_E_OUT_OF_ORDER;
    *frames = 0;
    *flags = 0;
    pa_threaded_mainloop_lock(s.context->Loop());
    if (!s.peeked && !Peek(s)) {
      pa_threaded_mainloop_unlock(s.context->Loop());
      return AUDCLNT_E_DEVICE_INVALIDATED;
    }
    if (!s.peeked) {
      pa_threaded_mainloop_unlock(s.context->Loop());
      return S_OK;
    }
    const int64_t index = s.readIndex + static_cast<int64_t>(s.peekOffset);
    if (!s.HeardAt(index, heardAt)) {
      *heardAt = MonotonicTime100ns();
      *flags = AUDCLNT_BUFFERFLAGS_TIMESTAMP_ERROR;
    }
    // The peeked block lives until the drop; the lock keeps the event thread
    // off the stream until then.
    *data = s.peeked + s.peekOffset;
    *frames = static_cast<uint32_t>((s.peekedBytes - s.peekOffset) / s.frameBytes);
    s.holding = true;
    return S_OK;
  }

  HRESULT ReleaseBuffer(uint32_t frames) override {
    CaptureState& s = *m_state;
    if (!s.holding) return AUDCLNT_E_OUT_OF_ORDER;
    s.peekOffset += static_cast<size_t>(frames) * s.frameBytes;
    if (s.peekOffset >= s.peekedBytes) {
      pa_stream_drop(s.stream);
      s.readIndex += static_cast<int64_t>(s.peekedBytes);
      s.peeked = nullptr;
      s.peekedBytes = s.peekOffset = 0;
      s.NoteReadable();
    }
    s.holding = false;
    pa_threaded_mainloop_unlock(s.context->Loop());
    return S_OK;
  }

 private:
  // With the lock held: the next fragment with data, holes passed over (the
  // times of what follows them tell how long they were). False when the
  // stream has failed.
  static bool Peek(CaptureState& s) {
    for (;;) {
      const void* peeked = nullptr;
      size_t bytes = 0;
      if (FAILED(PulseContext::StreamHealth(s.stream)) ||
          pa_stream_peek(s.stream, &peeked, &bytes) < 0)
        return false;
      if (bytes == 0) return true;
      if (peeked) {
        s.peeked = static_cast<const uint8_t*>(peeked);
        s.peekedBytes = bytes;
        s.peekOffset = 0;
        return true;
      }
      pa_stream_drop(s.stream);
      s.readIndex += static_cast<int64_t>(bytes);
      s.NoteReadable();
    }
  }

  std::shared_ptr<CaptureState> m_state;
};

class PulseAudioClient final : public AudioClient {
 public:
  explicit PulseAudioClient(std::shared_ptr<CaptureState> state) : m_state(std::move(state)) {}

  HRESULT GetMixFormat(WAVEFORMATEXTENSIBLE* format) override {
    *format = MixFormatOf(m_state->device.sampleFormat, m_state->device.map);
    return S_OK;
  }

  HRESULT IsFormatSupported(const WAVEFORMATEXTENSIBLE& format, WAVEFORMATEXTENSIBLE* closest,
                            bool* hasClosest) override {
    pa_sample_spec sampleFormat;
    pa_channel_map map;
    *hasClosest = false;
    if (PulseFormatOf(format, m_state->device.map, &sampleFormat, &map)) return S_OK;
    // The device's own format always records.
    GetMixFormat(closest);
    *hasClosest = true;
    return S_FALSE;
  }

  HRESULT Initialize(bool loopback, REFERENCE_TIME bufferDuration,
                     const WAVEFORMATEXTENSIBLE& format) override {
    CaptureState& s = *m_state;
    if (s.stream) return AUDCLNT_E_ALREADY_INITIALIZED;
    if (loopback != (s.flow == AudioFlow::Render)) return AUDCLNT_E_WRONG_ENDPOINT_TYPE;
    const std::string& source = loopback ? s.device.monitorSource : s.device.name;
    if (source.empty()) return E_NOTFOUND;
    pa_channel_map map;
    if (!PulseFormatOf(format, s.device.map, &s.sampleFormat, &map))
      return AUDCLNT_E_UNSUPPORTED_FORMAT;

    PulseLock lock(s.context->Loop());
    s.stream =
        pa_stream_new(s.context->Context(), loopback ? "Orvanta loopback" : "Orvanta capture",
                      &s.sampleFormat, &map);
    if (!s.stream) return AUDCLNT_E_UNSUPPORTED_FORMAT;
    s.context->WatchStream(s.stream);
    pa_stream_set_read_callback(s.stream, CaptureState::DataArrived, &s);
    pa_buffer_attr attr;
    std::memset(&attr, 0xFF, sizeof attr);
    const pa_usec_t buffer = std::max<pa_usec_t>(bufferDuration / 10, kLeastBufferUsec);
    attr.maxlength = static_cast<uint32_t>(pa_usec_to_bytes(buffer, &s.sampleFormat));
    attr.fragsize = static_cast<uint32_t>(pa_usec_to_bytes(kFragmentUsec, &s.sampleFormat));
    const auto flags =
        static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_DONT_MOVE |
                                       PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE);
    if (pa_stream_connect_record(s.stream, source.c_str(), &attr, flags) < 0)
      return AUDCLNT_E_UNSUPPORTED_FORMAT;
    HRESULT hr = s.context->WaitReady(s.stream);
    if (FAILED(hr)) return hr;
    s.frameBytes = static_cast<uint32_t>(pa_frame_size(&s.sampleFormat));
    return S_OK;
  }

  HRESULT GetCaptureClient(std::unique_ptr<AudioCaptureClient>* captureClient) override {
    if (!m_state->stream) return AUDCLNT_E_NOT_INITIALIZED;
    *captureClient = std::make_unique<PulseCaptureClient>(m_state);
    return S_OK;
  }

  HRESULT Start() override { return Cork(false); }
  HRESULT Stop() override { return Cork(true); }
  AudioClock& Clock() override { return g_monotonicClock; }

 private:
  HRESULT Cork(bool cork) {
    CaptureState& s = *m_state;
    if (!s.stream) return AUDCLNT_E_NOT_INITIALIZED;
    HRESULT hr = CorkStream(*s.context, s.stream, cork);
    // Fresh timing for the running stream: packet times do not wait for the
    // next automatic report.
    if (SUCCEEDED(hr) && !cork) {
      PulseLock lock(s.context->Loop());
      s.context->Wait(
          pa_stream_update_timing_info(s.stream, PulseContext::SignalSuccess, s.context->Loop()));
    }
    return hr;
  }

  std::shared_ptr<CaptureState> m_state;
};

}  // namespace

HRESULT AudioClient::Activate(const AudioEndpoint& endpoint, std::unique_ptr<AudioClient>* client) {
  auto state = std::make_shared<CaptureState>();
  HRESULT hr = PulseContext::Connect(&state->context);
  if (FAILED(hr)) return hr;
  state->flow = endpoint.flow;
  if (FAILED(hr = QueryDevice(*state->context, endpoint.flow, ToUtf8(endpoint.id), &state->device)))
    return hr;
  *client = std::make_unique<PulseAudioClient>(std::move(state));
  return S_OK;
}

}  // namespace ov
