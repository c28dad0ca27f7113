// Sink and source changes through the sound server's subscription, on a
// connection of the watch's own so that a slow host never holds up the
// audio objects' event threads.
#include "platform/DeviceWatch.h"
#include "platform/linux/PulseContext.h"

namespace ov {

namespace {

class PulseDeviceWatch : public AudioDeviceWatch {
 public:
  PulseDeviceWatch(std::unique_ptr<PulseContext> context,
                   std::function<void(const AudioDeviceEvent&)> onEvent)
      : m_context(std::move(context)), m_onEvent(std::move(onEvent)) {}

  bool Subscribe() {
    PulseLock lock(m_context->Loop());
    pa_context_set_subscribe_callback(m_context->Context(), &PulseDeviceWatch::OnEvent, this);
    const auto mask = static_cast<pa_subscription_mask_t>(
        PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER);
    auto done = [](pa_context*, int, void* loop) {
      pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(loop), 0);
    };
    return m_context->Wait(
        pa_context_subscribe(m_context->Context(), mask, done, m_context->Loop()));
  }

  ~PulseDeviceWatch() override {
    PulseLock lock(m_context->Loop());
    pa_context_set_subscribe_callback(m_context->Context(), nullptr, nullptr);
  }

 private:
  static void OnEvent(pa_context*, pa_subscription_event_type_t type, uint32_t index, void* self) {
    const unsigned facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const unsigned what = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    AudioDeviceEvent event;
    event.index = index;
    event.capture = facility == PA_SUBSCRIPTION_EVENT_SOURCE;
    if (facility == PA_SUBSCRIPTION_EVENT_SERVER)
      event.kind = AudioDeviceEvent::Kind::DefaultChanged;
    else if (what == PA_SUBSCRIPTION_EVENT_NEW)
      event.kind = AudioDeviceEvent::Kind::Added;
    else if (what == PA_SUBSCRIPTION_EVENT_REMOVE)
      event.kind = AudioDeviceEvent::Kind::Removed;
    else
      event.kind = AudioDeviceEvent::Kind::Changed;
    static_cast<PulseDeviceWatch*>(self)->m_onEvent(event);
  }

  std::unique_ptr<PulseContext> m_context;
  std::function<void(const AudioDeviceEvent&)> m_onEvent;
};

}  // namespace

std::unique_ptr<AudioDeviceWatch> WatchAudioDevices(
    std::function<void(const AudioDeviceEvent&)> onEvent) {
  std::unique_ptr<PulseContext> context;
  if (FAILED(PulseContext::Connect(&context))) return nullptr;
  auto watch = std::make_unique<PulseDeviceWatch>(std::move(context), std::move(onEvent));
  if (!watch->Subscribe()) return nullptr;
  return watch;
}

}  // namespace ov
