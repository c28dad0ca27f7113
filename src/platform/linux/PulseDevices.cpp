// Sinks and sources of the server as endpoints: sinks render, and their
// monitors are what loopback records; sources capture.
#include <cstring>

#include "platform/Files.h"
#include "platform/linux/PulseContext.h"

namespace ov {

namespace {

struct Query {
  pa_threaded_mainloop* loop;
  std::vector<PulseDevice>* devices;
};

template <typename Info>
PulseDevice DeviceOf(const Info& info) {
  PulseDevice d;
  d.name = info.name ? info.name : "";
  d.description = info.description ? info.description : d.name;
  if (const char* f = pa_proplist_gets(info.proplist, PA_PROP_DEVICE_FORM_FACTOR)) d.formFactor = f;
  d.unplugged = info.active_port && info.active_port->available == PA_PORT_AVAILABLE_NO;
  d.sampleFormat = info.sample_spec;
  d.map = info.channel_map;
  return d;
}

void OnSink(pa_context*, const pa_sink_info* info, int eol, void* userdata) {
  auto* q = static_cast<Query*>(userdata);
  if (eol == 0 && info) {
    PulseDevice d = DeviceOf(*info);
    if (info->monitor_source_name) d.monitorSource = info->monitor_source_name;
    q->devices->push_back(std::move(d));
  }
  pa_threaded_mainloop_signal(q->loop, 0);
}

void OnSource(pa_context*, const pa_source_info* info, int eol, void* userdata) {
  auto* q = static_cast<Query*>(userdata);
  if (eol == 0 && info) {
    PulseDevice d = DeviceOf(*info);
    d.isMonitor = info->monitor_of_sink != PA_INVALID_INDEX;
    q->devices->push_back(std::move(d));
  }
  pa_threaded_mainloop_signal(q->loop, 0);
}

struct Defaults {
  pa_threaded_mainloop* loop;
  std::string sink;
  std::string source;
};

void OnServer(pa_context*, const pa_server_info* info, void* userdata) {
  auto* d = static_cast<Defaults*>(userdata);
  if (info && info->default_sink_name) d->sink = info->default_sink_name;
  if (info && info->default_source_name) d->source = info->default_source_name;
  pa_threaded_mainloop_signal(d->loop, 0);
}

uint32_t FormFactorOf(const PulseDevice& d, AudioFlow flow) {
  static const struct {
    const char* name;
    AudioFormFactor value;
  } kFactors[] = {
      {"speaker", Speakers},      {"headphone", Headphones},
      {"microphone", Microphone}, {"webcam", Microphone},
      {"headset", Headset},       {"hands-free", Headset},
      {"handset", Handset},       {"tv", DigitalAudioDisplayDevice},
  };
  for (const auto& f : kFactors)
    if (d.formFactor == f.name) return f.value;
  if (d.formFactor == "internal") return flow == AudioFlow::Render ? Speakers : Microphone;
  return UnknownFormFactor;
}

AudioEndpoint EndpointOf(const PulseDevice& d, AudioFlow flow) {
  AudioEndpoint e;
  e.flow = flow;
  e.id = FromUtf8(d.name);
  e.name = FromUtf8(d.description);
  e.formFactor = FormFactorOf(d, flow);
  e.state = d.unplugged ? DEVICE_STATE_UNPLUGGED : DEVICE_STATE_ACTIVE;
  e.mixFormat = MixFormatOf(d.sampleFormat, d.map);
  return e;
}

}  // namespace

HRESULT QueryDefaultDeviceName(PulseContext& context, AudioFlow flow, std::string* name) {
  Defaults defaults{context.Loop(), {}, {}};
  PulseLock lock(context.Loop());
  if (!context.Wait(pa_context_get_server_info(context.Context(), OnServer, &defaults)))
    return AUDCLNT_E_SERVICE_NOT_RUNNING;
  *name = flow == AudioFlow::Render ? defaults.sink : defaults.source;
  return name->empty() ? E_NOTFOUND : S_OK;
}

HRESULT QueryDevice(PulseContext& context, AudioFlow flow, const std::string& name,
                    PulseDevice* device) {
  std::vector<PulseDevice> found;
  Query query{context.Loop(), &found};
  PulseLock lock(context.Loop());
  pa_operation* op =
      flow == AudioFlow::Render
          ? pa_context_get_sink_info_by_name(context.Context(), name.c_str(), OnSink, &query)
          : pa_context_get_source_info_by_name(context.Context(), name.c_str(), OnSource, &query);
  if (!context.Wait(op)) return AUDCLNT_E_SERVICE_NOT_RUNNING;
  if (found.empty()) return E_NOTFOUND;
  *device = std::move(found.front());
  return S_OK;
}

HRESULT QueryDevices(PulseContext& context, AudioFlow flow, std::vector<PulseDevice>* devices) {
  devices->clear();
  Query query{context.Loop(), devices};
  PulseLock lock(context.Loop());
  pa_operation* op = flow == AudioFlow::Render
                         ? pa_context_get_sink_info_list(context.Context(), OnSink, &query)
                         : pa_context_get_source_info_list(context.Context(), OnSource, &query);
  return context.Wait(op) ? S_OK : AUDCLNT_E_SERVICE_NOT_RUNNING;
}

HRESULT GetDefaultAudioEndpoint(AudioFlow flow, AudioEndpoint* endpoint) {
  std::unique_ptr<PulseContext> context;
  HRESULT hr = PulseContext::Connect(&context);
  if (FAILED(hr)) return hr;
  std::string name;
  if (FAILED(hr = QueryDefaultDeviceName(*context, flow, &name))) return hr;
  PulseDevice device;
  if (FAILED(hr = QueryDevice(*context, flow, name, &device))) return hr;
  *endpoint = EndpointOf(device, flow);
  return S_OK;
}

HRESULT EnumAudioEndpoints(AudioFlow flow, std::vector<AudioEndpoint>* endpoints) {
  std::unique_ptr<PulseContext> context;
  HRESULT hr = PulseContext::Connect(&context);
  if (FAILED(hr)) return hr;
  std::string defaultName;
  QueryDefaultDeviceName(*context, flow, &defaultName);
  std::vector<PulseDevice> devices;
  if (FAILED(hr = QueryDevices(*context, flow, &devices))) return hr;
  endpoints->clear();
  // Monitors record what a sink plays; they are no microphones, unless the
  // server made one the default input.
  for (const PulseDevice& d : devices)
    if (!d.isMonitor || d.name == defaultName) endpoints->push_back(EndpointOf(d, flow));
  return S_OK;
}

}  // namespace ov
