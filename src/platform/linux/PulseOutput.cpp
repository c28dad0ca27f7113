// Playback streams for the players. Each run of an output is a stream of its
// own: Stop drops the stream with what it had queued, and the next Play
// makes a new one, so a run's position starts at 0.
//
// The position comes from the server's timing reports: at the instant of a
// report, the byte at the stream's read index is heard after the sink's
// latency, and time goes on at the nominal rate from there. Nothing else
// is trusted: a sink that had rendered far ahead (an idle one renders up to
// two seconds) plays a new stream's first samples only when that is used
// up, while the library's own interpolation of the time already runs.
//
// Streams start corked and are filled before they run. They have no
// pre-buffering: a source that falls behind leaves a gap of silence while
// the position goes on, so the position stays the time of what is heard.
#include <pulse/timeval.h>

#include <algorithm>

#include "platform/AudioOutput.h"
#include "platform/linux/PulseContext.h"

namespace ov {

namespace {

constexpr uint32_t kQueuedMs = 200;
constexpr uint32_t kRequestMs = 40;
// Reports older than this are renewed; the server's own schedule slows down
// to one in 1.5 s.
constexpr pa_usec_t kTimingRefreshUsec = 100000;

void SignalContextSuccess(pa_context*, int, void* loop) {
  pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(loop), 0);
}

}  // namespace

struct AudioOutput::State {
  std::unique_ptr<PulseContext> context;
  AudioOutputSource* source = nullptr;
  pa_sample_spec sampleFormat{};
  pa_channel_map map{};
  pa_stream* stream = nullptr;  // of the current run; null while stopped
  bool feeding = false;         // the source is read for the stream
  bool ended = false;           // the source gave 0
  bool running = false;         // uncorked
  bool fresh = false;           // a timing report arrived since the stream last ran
  bool updating = false;        // a timing report is asked for
  int64_t heard = 0;            // the position last told, 100-ns units
  uint32_t level = 65535;

  ~State() { Drop(); }

  pa_cvolume Volume() const {
    pa_cvolume volume;
    pa_cvolume_set(&volume, sampleFormat.channels, pa_sw_volume_from_linear(level / 65535.0));
    return volume;
  }

  // With the lock held.
  static void WriteRequested(pa_stream*, size_t bytes, void* self) {
    static_cast<State*>(self)->Fill(bytes);
  }

  // With the lock held: hands up to bytes of the source to the stream.
  void Fill(size_t bytes) {
    const size_t frame = pa_frame_size(&sampleFormat);
    while (feeding && !ended && bytes >= frame) {
      void* data = nullptr;
      size_t size = bytes;
      if (pa_stream_begin_write(stream, &data, &size) < 0 || !data) return;
      size -= size % frame;
      size_t got = 0;
      while (got < size) {
        const uint32_t n =
            source->Read(static_cast<uint8_t*>(data) + got,
                         static_cast<uint32_t>(std::min<size_t>(size - got, 1u << 30)));
        if (n == 0) break;
        got += n;
      }
      got -= got % frame;
      if (got == 0) {
        pa_stream_cancel_write(stream);
        ended = true;
        return;
      }
      if (pa_stream_write(stream, data, got, nullptr, 0, PA_SEEK_RELATIVE) < 0) return;
      bytes -= got;
    }
  }

  static void TimingArrived(pa_stream*, int, void* self) {
    auto* state = static_cast<State*>(self);
    state->updating = false;
    state->fresh = true;
  }

  // With the lock held.
  void AskTiming() {
    if (updating || !stream) return;
    pa_operation* op = pa_stream_update_timing_info(stream, TimingArrived, this);
    if (op) pa_operation_unref(op);
    updating = op != nullptr;
  }

  // With the lock held: what is heard now, from the last report; never
  // less than what was told before.
  int64_t Heard() {
    if (!stream || !running) return heard;
    const pa_timing_info* timing = pa_stream_get_timing_info(stream);
    if (!timing || timing->read_index_corrupt) return heard;
    const pa_usec_t age = pa_timeval_age(&timing->timestamp);
    if (age > kTimingRefreshUsec) AskTiming();
    if (!fresh) return heard;
    const int64_t played = static_cast<int64_t>(pa_bytes_to_usec(
        static_cast<uint64_t>(std::max<int64_t>(timing->read_index, 0)), &sampleFormat));
    const int64_t usec =
        played + static_cast<int64_t>(age) - static_cast<int64_t>(timing->sink_usec);
    heard = std::max(heard, usec * 10);
    return heard;
  }

  // Without the lock, on the thread that plays and stops, the one that
  // changes stream (others read it under the lock).
  HRESULT Connect() {
    PulseLock lock(context->Loop());
    stream = pa_stream_new(context->Context(), "Orvanta playback", &sampleFormat, &map);
    if (!stream) return AUDCLNT_E_UNSUPPORTED_FORMAT;
    context->WatchStream(stream);
    pa_stream_set_write_callback(stream, WriteRequested, this);
    pa_buffer_attr attr;
    attr.maxlength = static_cast<uint32_t>(-1);
    attr.tlength = static_cast<uint32_t>(pa_usec_to_bytes(kQueuedMs * 1000ull, &sampleFormat));
    attr.prebuf = 0;
    attr.minreq = static_cast<uint32_t>(pa_usec_to_bytes(kRequestMs * 1000ull, &sampleFormat));
    attr.fragsize = static_cast<uint32_t>(-1);
    const auto flags = static_cast<pa_stream_flags_t>(
        PA_STREAM_START_CORKED | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_ADJUST_LATENCY);
    const pa_cvolume volume = Volume();
    if (pa_stream_connect_playback(stream, nullptr, &attr, flags, &volume, nullptr) < 0)
      return AUDCLNT_E_UNSUPPORTED_FORMAT;
    return context->WaitReady(stream);
  }

  // Without the lock.
  void Drop() {
    if (!stream) return;
    pa_stream* gone = stream;
    {
      PulseLock lock(context->Loop());
      pa_stream_set_write_callback(gone, nullptr, nullptr);
      feeding = running = fresh = updating = false;
      heard = 0;
      stream = nullptr;
    }
    ReleaseStream(*context, gone);
  }
};

AudioOutput::AudioOutput(std::unique_ptr<State> state) : m_state(std::move(state)) {}
AudioOutput::~AudioOutput() = default;

HRESULT AudioOutput::Open(const WAVEFORMATEXTENSIBLE& format, AudioOutputSource* source,
                          std::unique_ptr<AudioOutput>* output) {
  auto state = std::make_unique<State>();
  state->source = source;
  pa_channel_map deviceMap;
  pa_channel_map_init_extend(&deviceMap, format.Format.nChannels, PA_CHANNEL_MAP_DEFAULT);
  if (format.Format.nChannels == 0 || format.Format.nChannels > PA_CHANNELS_MAX ||
      !PulseFormatOf(format, deviceMap, &state->sampleFormat, &state->map))
    return AUDCLNT_E_UNSUPPORTED_FORMAT;
  HRESULT hr = PulseContext::Connect(&state->context);
  if (FAILED(hr)) return hr;
  // The first run's stream is made now, so that a device that cannot play
  // fails the open.
  if (FAILED(hr = state->Connect())) return hr;
  output->reset(new AudioOutput(std::move(state)));
  return S_OK;
}

HRESULT AudioOutput::Play() {
  State& s = *m_state;
  HRESULT hr;
  if (!s.stream && FAILED(hr = s.Connect())) {
    s.Drop();
    return hr;
  }
  {
    PulseLock lock(s.context->Loop());
    if (!s.feeding) {
      s.feeding = true;
      s.ended = false;
      const size_t writable = pa_stream_writable_size(s.stream);
      if (writable != static_cast<size_t>(-1)) s.Fill(writable);
    }
  }
  hr = CorkStream(*s.context, s.stream, false);
  PulseLock lock(s.context->Loop());
  // Reports from before the stream ran tell nothing of where it is now.
  s.running = SUCCEEDED(hr);
  s.fresh = s.updating = false;
  s.AskTiming();
  return hr;
}

HRESULT AudioOutput::Pause() {
  State& s = *m_state;
  if (!s.stream) return S_OK;
  {
    PulseLock lock(s.context->Loop());
    s.Heard();
    s.running = false;
  }
  return CorkStream(*s.context, s.stream, true);
}

HRESULT AudioOutput::Stop() {
  m_state->Drop();
  return S_OK;
}

int64_t AudioOutput::Position() {
  State& s = *m_state;
  PulseLock lock(s.context->Loop());
  return s.Heard();
}

bool AudioOutput::Exhausted() {
  PulseLock lock(m_state->context->Loop());
  return m_state->ended;
}

HRESULT AudioOutput::SetVolume(uint32_t level) {
  State& s = *m_state;
  PulseLock lock(s.context->Loop());
  s.level = std::min<uint32_t>(level, 65535);
  if (!s.stream || pa_stream_get_state(s.stream) != PA_STREAM_READY) return S_OK;
  const pa_cvolume volume = s.Volume();
  pa_operation* op =
      pa_context_set_sink_input_volume(s.context->Context(), pa_stream_get_index(s.stream), &volume,
                                       SignalContextSuccess, s.context->Loop());
  return s.context->Wait(op) ? S_OK : E_FAIL;
}

}  // namespace ov
