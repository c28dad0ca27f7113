// The device watcher: audio events from the sound server's thread, camera
// nodes and screen layout events from their descriptors, all brought onto
// one thread of the watcher's own, where bursts settle and the new state is
// compared with the old before the host hears of it.
#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "audio/AudioCatalogue.h"
#include "camera/CameraDevice.h"
#include "capture/DisplayCatalogue.h"
#include "core/Log.h"
#include "orvanta/notify.h"
#include "platform/AudioEndpoint.h"
#include "platform/Clock.h"
#include "platform/DeviceWatch.h"
#include "platform/Event.h"
#include "platform/MessageQueue.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/XServer.h"

namespace {

constexpr uint32_t WM_DISPLAYCHANGE = 0x007E;
constexpr uint32_t WM_DEVICECHANGE = 0x0219;
constexpr uint32_t CM_AUDIO_NOTIFY = 1200;
constexpr uint64_t DBT_DEVNODES_CHANGED = 0x0007;
// The X server went away: its connection is watched no longer, or a dead
// descriptor would wake the thread for ever.
constexpr uint32_t CM_LAYOUT_LOST = ov::WM_USER + 1;

// What tells one device record from another: the name, the id and the
// start of the format; the lists of codecs are left out.
constexpr size_t kComparedBytes = offsetof(AudioDeviceInfo, FormatBytes) + 82;

// Every present endpoint of both flows, so that a device that comes or
// goes without becoming a default still counts as a change.
std::string EndpointSignature() {
  std::string signature;
  for (ov::AudioFlow flow : {ov::AudioFlow::Render, ov::AudioFlow::Capture}) {
    std::vector<ov::AudioEndpoint> endpoints;
    if (FAILED(ov::EnumAudioEndpoints(flow, &endpoints))) continue;
    for (const ov::AudioEndpoint& e : endpoints) {
      signature += ov::ToUtf8(e.id) + '\n' + ov::ToUtf8(e.name) + '\n' + std::to_string(e.state);
      signature.append(reinterpret_cast<const char*>(&e.mixFormat), sizeof e.mixFormat);
    }
    signature += '|';
  }
  return signature;
}

bool SameMonitors(const std::vector<ov::MonitorInfo>& a, const std::vector<ov::MonitorInfo>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const RECT &p = a[i].rect, &q = b[i].rect;
    if (p.left != q.left || p.top != q.top || p.right != q.right || p.bottom != q.bottom ||
        a[i].primary != b[i].primary || std::strcmp(a[i].name, b[i].name) != 0)
      return false;
  }
  return true;
}

std::wstring DeviceId(const ov::AudioDeviceEvent& event) {
  return (event.capture ? L"source#" : L"sink#") + std::to_wstring(event.index);
}

// The sound server's events. They come on its thread and do nothing there
// but log and pass the word on.
class CMMNotificationClient {
 public:
  virtual ~CMMNotificationClient() = default;

  void OnDeviceAdded(const std::wstring& id) {
    WriteLog(ov::kMsg, "OnDeviceAdded:%ls\n", id.c_str());
    OnAudioChange();
  }
  void OnDeviceRemoved(const std::wstring& id) {
    WriteLog(ov::kMsg, "OnDeviceRemoved:%ls\n", id.c_str());
    OnAudioChange();
  }
  // The server says only that a default changed, not which.
  void OnDefaultDeviceChanged() {
    WriteLog(ov::kMsg, "OnDefaultDeviceChanged:EDataFlow=%s; ERole=%s; DefaultDeviceId=%ls\n",
             "eAll", "eConsole", L"");
    OnAudioChange();
  }
  void OnPropertyValueChanged(const std::wstring& id) {
    WriteLog(ov::kMsg, "OnPropertyValueChanged:%ls\n", id.c_str());
    OnAudioChange();
  }

  void OnEvent(const ov::AudioDeviceEvent& event) {
    switch (event.kind) {
      case ov::AudioDeviceEvent::Kind::Added:
        return OnDeviceAdded(DeviceId(event));
      case ov::AudioDeviceEvent::Kind::Removed:
        return OnDeviceRemoved(DeviceId(event));
      case ov::AudioDeviceEvent::Kind::DefaultChanged:
        return OnDefaultDeviceChanged();
      case ov::AudioDeviceEvent::Kind::Changed:
        return OnPropertyValueChanged(DeviceId(event));
    }
  }

  virtual void OnAudioChange() = 0;
};

class CDeviceDetect : public CMMNotificationClient {
 public:
  explicit CDeviceDetect(DeviceNotifyCallback* pCallback) : m_pCallback(pCallback) {}
  ~CDeviceDetect() override {
    if (!m_thread.joinable()) return;
    ov::MessageQueue::PostThreadMessage(m_threadId, ov::WM_QUIT, 0, 0);
    m_thread.join();
  }

  bool Start() {
    try {
      m_thread = std::thread(&CDeviceDetect::Run, this);
    } catch (const std::system_error&) {
      WriteLog(ov::kErr, "Unable to start the device watcher\n");
      return false;
    }
    m_ready.Wait();
    return true;
  }

  // The host's callbacks run on the watcher's own thread, which cannot
  // join itself.
  bool OnOwnThread() const { return std::this_thread::get_id() == m_thread.get_id(); }

  void OnAudioChange() override {
    ov::MessageQueue::PostThreadMessage(m_threadId, CM_AUDIO_NOTIFY, 0, 0);
  }

 private:
  void Run();
  void Settle(ov::MessageQueue& queue, ov::Message* msg);
  void OnDisplayChange(const ov::Message& msg);
  void OnDeviceChange(const ov::Message& msg);
  void OnAudioNotify();

  DeviceNotifyCallback* const m_pCallback;
  std::thread m_thread;
  std::atomic<uint32_t> m_threadId{0};
  ov::Event m_ready{ov::Event::Reset::Auto};
  // What the host was last told of, kept on the watcher's thread.
  std::vector<ov::MonitorInfo> m_monitors;
  std::string m_endpoints;
};

void CDeviceDetect::Run() {
  ov::SetCurrentThreadName("DeviceDetect");
  ov::MessageQueue queue;
  m_threadId = queue.ThreadId();
  std::unique_ptr<ov::AudioDeviceWatch> audio =
      ov::WatchAudioDevices([this](const ov::AudioDeviceEvent& event) { OnEvent(event); });
  std::unique_ptr<ov::DeviceEventSource> nodes = ov::WatchVideoNodes();
  std::unique_ptr<ov::DeviceEventSource> layout = ov::WatchScreenLayout();
  if (nodes)
    queue.Watch(nodes->Fd(), [&] {
      if (nodes->Drain()) queue.Post({0, WM_DEVICECHANGE, DBT_DEVNODES_CHANGED, 0});
    });
  bool layoutLost = false;
  if (layout)
    queue.Watch(layout->Fd(), [&] {
      if (layout->Drain()) queue.Post({0, WM_DISPLAYCHANGE, layout->Depth(), layout->PackedSize()});
      if (layout->Lost() && !layoutLost) queue.Post({0, CM_LAYOUT_LOST, 0, 0});
      layoutLost = layout->Lost();
    });
  m_monitors = ov::Monitors();
  m_endpoints = EndpointSignature();
  m_ready.Set();

  if (!audio) WriteLog(ov::kWan, "No sound server: audio devices are not watched\n");
  ov::Message msg;
  while (queue.Get(&msg)) {
    if (msg.message == CM_LAYOUT_LOST) {
      WriteLog(ov::kWan, "The X server went away: displays are not watched\n");
      queue.Unwatch(layout->Fd());
      continue;
    }
    Settle(queue, &msg);
    if (msg.message == WM_DISPLAYCHANGE)
      OnDisplayChange(msg);
    else if (msg.message == WM_DEVICECHANGE)
      OnDeviceChange(msg);
    else if (msg.message == CM_AUDIO_NOTIFY)
      OnAudioNotify();
  }
  // The watches go before the queue that their events reach.
}

// A burst is answered once, after 60 ms without a further message of its
// kind, with the last message's parameters.
void CDeviceDetect::Settle(ov::MessageQueue& queue, ov::Message* msg) {
  int tries = 0;
  for (;;) {
    if (queue.Peek(msg->message, msg)) {
      tries = 0;
      continue;
    }
    if (tries > 5) return;
    ov::SleepMs(10);
    ++tries;
  }
}

void CDeviceDetect::OnDisplayChange(const ov::Message& msg) {
  WriteLog(ov::kMsg, "WM_DISPLAYCHANGE: 0x%x, 0x%x\n", static_cast<unsigned>(msg.wParam),
           static_cast<unsigned>(msg.lParam));
  std::vector<ov::MonitorInfo> monitors = ov::Monitors();
  if (SameMonitors(monitors, m_monitors)) {
    WriteLog(ov::kMsg, "Display NOT change!\n");
    return;
  }
  m_monitors = std::move(monitors);
  ov::RebuildDisplayCatalogue(true);
  m_pCallback->OnDisplayChange();
}

void CDeviceDetect::OnDeviceChange(const ov::Message& msg) {
  WriteLog(ov::kMsg, "WM_DEVICECHANGE: 0x%x, 0x%x\n", static_cast<unsigned>(msg.wParam),
           static_cast<unsigned>(msg.lParam));
  if (!RefreshCameraDevices()) {
    WriteLog(ov::kMsg, "Camera NOT change!\n");
    return;
  }
  WriteLog(ov::kWan, "Camera changed, CameraDeviceCount=%d!\n", GetCameraDeviceCount());
  m_pCallback->OnCameraChange();
}

void CDeviceDetect::OnAudioNotify() {
  WriteLog(ov::kMsg, "CM_AUDIO_NOTIFY\n");
  ov::AudioDeviceTable fresh;
  ov::BuildAudioDeviceTable(&fresh);
  ov::AudioDeviceTable& inUse = ov::AudioDevicesInUse();
  bool changed = false;
  for (size_t i = 0; i < fresh.size(); ++i) {
    auto &now = fresh[i], &old = inUse[i];
    if (!now && !old) continue;
    if (now && old && std::memcmp(&now->info, &old->info, kComparedBytes) == 0) continue;
    old = std::move(now);
    changed = true;
  }
  std::string endpoints = EndpointSignature();
  if (endpoints != m_endpoints) {
    m_endpoints = std::move(endpoints);
    changed = true;
  }
  if (changed) m_pCallback->OnAudioDeviceChange();
}

}  // namespace

extern "C" OV_API void* RegisterDeviceNotifies(DeviceNotifyCallback* pCallback) {
  if (!pCallback) {
    OV_BAD_ARG(pCallback);
    return nullptr;
  }
  auto detect = std::make_unique<CDeviceDetect>(pCallback);
  if (!detect->Start()) return nullptr;
  return detect.release();
}

extern "C" OV_API void UnregisterDeviceNotifies(void* handle) {
  auto* detect = static_cast<CDeviceDetect*>(handle);
  if (detect && detect->OnOwnThread()) {
    WriteLog(ov::kErr, "Error: UnregisterDeviceNotifies inside a device callback, ignored\n");
    return;
  }
  delete detect;
}
