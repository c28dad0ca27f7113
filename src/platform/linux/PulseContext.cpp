#include "platform/linux/PulseContext.h"

namespace ov {

namespace {

void SignalLoop(pa_context*, void* loop) {
  pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(loop), 0);
}

void SignalStream(pa_stream*, void* loop) {
  pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(loop), 0);
}

bool Settled(pa_context_state_t state) {
  return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
}

}  // namespace

HRESULT PulseContext::Connect(std::unique_ptr<PulseContext>* context) {
  std::unique_ptr<PulseContext> made(new PulseContext());
  made->m_loop = pa_threaded_mainloop_new();
  if (!made->m_loop) return E_OUTOFMEMORY;
  made->m_context = pa_context_new(pa_threaded_mainloop_get_api(made->m_loop), "Orvanta");
  if (!made->m_context) return E_OUTOFMEMORY;
  pa_context_set_state_callback(made->m_context, SignalLoop, made->m_loop);
  // A recorder must not start a sound server of its own.
  if (pa_context_connect(made->m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
    return AUDCLNT_E_SERVICE_NOT_RUNNING;
  if (pa_threaded_mainloop_start(made->m_loop) < 0) return E_FAIL;
  {
    PulseLock lock(made->m_loop);
    while (!Settled(pa_context_get_state(made->m_context))) pa_threaded_mainloop_wait(made->m_loop);
    if (pa_context_get_state(made->m_context) != PA_CONTEXT_READY)
      return AUDCLNT_E_SERVICE_NOT_RUNNING;
  }
  *context = std::move(made);
  return S_OK;
}

PulseContext::~PulseContext() {
  if (m_context) {
    if (m_loop) pa_threaded_mainloop_lock(m_loop);
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    pa_context_unref(m_context);
    if (m_loop) pa_threaded_mainloop_unlock(m_loop);
  }
  if (m_loop) {
    pa_threaded_mainloop_stop(m_loop);
    pa_threaded_mainloop_free(m_loop);
  }
}

bool PulseContext::Wait(pa_operation* operation) {
  if (!operation) return false;
  while (pa_operation_get_state(operation) == PA_OPERATION_RUNNING)
    pa_threaded_mainloop_wait(m_loop);
  const bool done = pa_operation_get_state(operation) == PA_OPERATION_DONE;
  pa_operation_unref(operation);
  return done;
}

void PulseContext::WatchStream(pa_stream* stream) {
  pa_stream_set_state_callback(stream, SignalStream, m_loop);
}

HRESULT PulseContext::WaitReady(pa_stream* stream) {
  for (;;) {
    pa_stream_state_t state = pa_stream_get_state(stream);
    if (state == PA_STREAM_READY) return S_OK;
    if (!PA_STREAM_IS_GOOD(state)) break;
    pa_threaded_mainloop_wait(m_loop);
  }
  switch (pa_context_errno(m_context)) {
    case PA_ERR_NOENTITY:
      return AUDCLNT_E_DEVICE_INVALIDATED;
    case PA_ERR_INVALID:
    case PA_ERR_NOTSUPPORTED:
      return AUDCLNT_E_UNSUPPORTED_FORMAT;
    case PA_ERR_CONNECTIONTERMINATED:
    case PA_ERR_CONNECTIONREFUSED:
      return AUDCLNT_E_SERVICE_NOT_RUNNING;
    default:
      return E_FAIL;
  }
}

HRESULT PulseContext::StreamHealth(pa_stream* stream) {
  return pa_stream_get_state(stream) == PA_STREAM_READY ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
}

void PulseContext::SignalSuccess(pa_stream*, int, void* loop) {
  pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(loop), 0);
}

}  // namespace ov

namespace ov {

HRESULT CorkStream(PulseContext& context, pa_stream* stream, bool cork) {
  PulseLock lock(context.Loop());
  HRESULT hr = PulseContext::StreamHealth(stream);
  if (FAILED(hr)) return hr;
  pa_operation* op =
      pa_stream_cork(stream, cork ? 1 : 0, PulseContext::SignalSuccess, context.Loop());
  return context.Wait(op) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
}

void ReleaseStream(PulseContext& context, pa_stream* stream) {
  PulseLock lock(context.Loop());
  pa_stream_set_state_callback(stream, nullptr, nullptr);
  pa_stream_disconnect(stream);
  pa_stream_unref(stream);
}

}  // namespace ov
