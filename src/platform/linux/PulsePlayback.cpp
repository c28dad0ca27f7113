// The silent player: a playback stream that is never written to. Uncorked,
// its sink input counts as in use, so the sink neither goes idle nor is
// suspended, and its monitor keeps delivering (silent) samples.
#include "platform/Files.h"
#include "platform/SilentPlayer.h"
#include "platform/linux/PulseContext.h"

namespace ov {

struct SilentPlayer::State {
  std::unique_ptr<PulseContext> context;
  pa_stream* stream = nullptr;

  ~State() {
    if (context && stream) ReleaseStream(*context, stream);
  }
};

SilentPlayer::SilentPlayer(std::unique_ptr<State> state) : m_state(std::move(state)) {}
SilentPlayer::~SilentPlayer() = default;

HRESULT SilentPlayer::Open(const AudioEndpoint& endpoint, std::unique_ptr<SilentPlayer>* player) {
  if (endpoint.flow != AudioFlow::Render) return AUDCLNT_E_WRONG_ENDPOINT_TYPE;
  auto state = std::make_unique<State>();
  HRESULT hr = PulseContext::Connect(&state->context);
  if (FAILED(hr)) return hr;
  PulseDevice device;
  if (FAILED(hr = QueryDevice(*state->context, AudioFlow::Render, ToUtf8(endpoint.id), &device)))
    return hr;

  PulseContext& context = *state->context;
  PulseLock lock(context.Loop());
  // The sink's own format: the server has nothing to convert.
  state->stream =
      pa_stream_new(context.Context(), "Orvanta silent player", &device.sampleFormat, &device.map);
  if (!state->stream) return AUDCLNT_E_UNSUPPORTED_FORMAT;
  context.WatchStream(state->stream);
  const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_DONT_MOVE);
  if (pa_stream_connect_playback(state->stream, device.name.c_str(), nullptr, flags, nullptr,
                                 nullptr) < 0)
    return AUDCLNT_E_UNSUPPORTED_FORMAT;
  if (FAILED(hr = context.WaitReady(state->stream))) return hr;
  player->reset(new SilentPlayer(std::move(state)));
  return S_OK;
}

HRESULT SilentPlayer::Start() { return CorkStream(*m_state->context, m_state->stream, false); }
HRESULT SilentPlayer::Stop() { return CorkStream(*m_state->context, m_state->stream, true); }

}  // namespace ov
