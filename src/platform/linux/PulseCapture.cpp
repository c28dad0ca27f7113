// Capture clients on record streams. A loopback client records the monitor
// of its sink. Streams are pinned to their device: when it goes, they fail
// rather than move to another one.
#include <cstring>

#include "platform/AudioClient.h"
#include "platform/Files.h"
#include "platform/linux/PulseContext.h"

namespace ov {

namespace {

// Delivery in steps of this length, like the shared-mode period elsewhere.
constexpr pa_usec_t kFragmentUsec = 10000;

}  // namespace

struct AudioClient::State {
  std::unique_ptr<PulseContext> context;
  AudioFlow flow = AudioFlow::Render;
  PulseDevice device;
  pa_stream* stream = nullptr;
  uint32_t frameBytes = 0;
  bool holding = false;  // a packet is out and the loop lock is held for it

  ~State() {
    if (!context) return;
    if (holding) pa_threaded_mainloop_unlock(context->Loop());
    if (stream) ReleaseStream(*context, stream);
  }
};

AudioClient::AudioClient(std::shared_ptr<State> state) : m_state(std::move(state)) {}
AudioClient::~AudioClient() = default;

HRESULT AudioClient::Activate(const AudioEndpoint& endpoint, std::unique_ptr<AudioClient>* client) {
  auto state = std::make_shared<State>();
  HRESULT hr = PulseContext::Connect(&state->context);
  if (FAILED(hr)) return hr;
  state->flow = endpoint.flow;
  if (FAILED(hr = QueryDevice(*state->context, endpoint.flow, ToUtf8(endpoint.id), &state->device)))
    return hr;
  client->reset(new AudioClient(std::move(state)));
  return S_OK;
}

HRESULT AudioClient::GetMixFormat(WAVEFORMATEXTENSIBLE* format) {
  *format = MixFormatOf(m_state->device.sampleSpec, m_state->device.map);
  return S_OK;
}

HRESULT AudioClient::IsFormatSupported(const WAVEFORMATEXTENSIBLE& format,
                                       WAVEFORMATEXTENSIBLE* closest, bool* hasClosest) {
  pa_sample_spec sampleSpec;
  pa_channel_map map;
  *hasClosest = false;
  if (SampleSpecOf(format, m_state->device.map, &sampleSpec, &map)) return S_OK;
  // The device's own format always records.
  GetMixFormat(closest);
  *hasClosest = true;
  return S_FALSE;
}

HRESULT AudioClient::Initialize(bool loopback, REFERENCE_TIME bufferDuration,
                                const WAVEFORMATEXTENSIBLE& format) {
  State& s = *m_state;
  if (s.stream) return AUDCLNT_E_ALREADY_INITIALIZED;
  if (loopback != (s.flow == AudioFlow::Render)) return AUDCLNT_E_WRONG_ENDPOINT_TYPE;
  const std::string& source = loopback ? s.device.monitorSource : s.device.name;
  if (source.empty()) return E_NOTFOUND;
  pa_sample_spec sampleSpec;
  pa_channel_map map;
  if (!SampleSpecOf(format, s.device.map, &sampleSpec, &map)) return AUDCLNT_E_UNSUPPORTED_FORMAT;

  PulseLock lock(s.context->Loop());
  s.stream = pa_stream_new(s.context->Context(), loopback ? "Orvanta loopback" : "Orvanta capture",
                           &sampleSpec, &map);
  if (!s.stream) return AUDCLNT_E_UNSUPPORTED_FORMAT;
  s.context->WatchStream(s.stream);
  pa_buffer_attr attr;
  std::memset(&attr, 0xFF, sizeof attr);
  attr.maxlength = static_cast<uint32_t>(pa_usec_to_bytes(bufferDuration / 10, &sampleSpec));
  attr.fragsize = static_cast<uint32_t>(pa_usec_to_bytes(kFragmentUsec, &sampleSpec));
  const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_DONT_MOVE |
                                                    PA_STREAM_ADJUST_LATENCY);
  if (pa_stream_connect_record(s.stream, source.c_str(), &attr, flags) < 0)
    return AUDCLNT_E_UNSUPPORTED_FORMAT;
  HRESULT hr = s.context->WaitReady(s.stream);
  if (FAILED(hr)) return hr;
  s.frameBytes = static_cast<uint32_t>(pa_frame_size(&sampleSpec));
  return S_OK;
}

HRESULT AudioClient::GetCaptureClient(std::unique_ptr<AudioCaptureClient>* captureClient) {
  if (!m_state->stream) return AUDCLNT_E_NOT_INITIALIZED;
  captureClient->reset(new AudioCaptureClient(m_state));
  return S_OK;
}

static HRESULT Cork(AudioClient::State& s, bool cork) {
  if (!s.stream) return AUDCLNT_E_NOT_INITIALIZED;
  PulseLock lock(s.context->Loop());
  HRESULT hr = PulseContext::StreamHealth(s.stream);
  if (FAILED(hr)) return hr;
  pa_operation* op =
      pa_stream_cork(s.stream, cork ? 1 : 0, PulseContext::SignalSuccess, s.context->Loop());
  return s.context->Wait(op) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
}

HRESULT AudioClient::Start() { return Cork(*m_state, false); }
HRESULT AudioClient::Stop() { return Cork(*m_state, true); }

AudioCaptureClient::AudioCaptureClient(std::shared_ptr<AudioClient::State> state)
    : m_state(std::move(state)) {}
AudioCaptureClient::~AudioCaptureClient() = default;

HRESULT AudioCaptureClient::GetNextPacketSize(uint32_t* frames) {
  AudioClient::State& s = *m_state;
  PulseLock lock(s.context->Loop());
  HRESULT hr = PulseContext::StreamHealth(s.stream);
  if (FAILED(hr)) return hr;
  const size_t bytes = pa_stream_readable_size(s.stream);
  if (bytes == static_cast<size_t>(-1)) return AUDCLNT_E_DEVICE_INVALIDATED;
  *frames = static_cast<uint32_t>(bytes / s.frameBytes);
  return S_OK;
}

HRESULT AudioCaptureClient::GetBuffer(const BYTE** data, uint32_t* frames) {
  AudioClient::State& s = *m_state;
  if (s.holding) return AUDCLNT_E_OUT_OF_ORDER;
  *frames = 0;
  pa_threaded_mainloop_lock(s.context->Loop());
  const void* peeked = nullptr;
  size_t bytes = 0;
  if (FAILED(PulseContext::StreamHealth(s.stream)) ||
      pa_stream_peek(s.stream, &peeked, &bytes) < 0) {
    pa_threaded_mainloop_unlock(s.context->Loop());
    return AUDCLNT_E_DEVICE_INVALIDATED;
  }
  // A hole in the stream is skipped: nothing is made up in its place.
  if (bytes > 0 && !peeked) pa_stream_drop(s.stream);
  if (bytes == 0 || !peeked) {
    pa_threaded_mainloop_unlock(s.context->Loop());
    return S_OK;
  }
  // The peeked block lives until the drop; the lock keeps the event thread
  // off the stream until then.
  *data = static_cast<const BYTE*>(peeked);
  *frames = static_cast<uint32_t>(bytes / s.frameBytes);
  s.holding = true;
  return S_OK;
}

HRESULT AudioCaptureClient::ReleaseBuffer(uint32_t frames) {
  AudioClient::State& s = *m_state;
  if (!s.holding) return AUDCLNT_E_OUT_OF_ORDER;
  if (frames > 0) pa_stream_drop(s.stream);
  s.holding = false;
  pa_threaded_mainloop_unlock(s.context->Loop());
  return S_OK;
}

}  // namespace ov
