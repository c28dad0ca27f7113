// One connection to the sound server with its own event thread. Every audio
// object holds its own, so that a capture, its reader and the silent player
// never wait on each other's callbacks, and a lost device only fails the
// streams that used it.
#pragma once

#include <pulse/pulseaudio.h>

#include <memory>
#include <string>
#include <vector>

#include "orvanta/types.h"
#include "platform/AudioEndpoint.h"
#include "platform/NonCopyable.h"

namespace ov {

class PulseContext : private NonCopyable {
 public:
  // Connects; AUDCLNT_E_SERVICE_NOT_RUNNING when no server answers.
  static HRESULT Connect(std::unique_ptr<PulseContext>* context);
  ~PulseContext();

  pa_threaded_mainloop* Loop() const { return m_loop; }
  pa_context* Context() const { return m_context; }

  // Called with the lock held. Waits for the operation to end and drops it;
  // false when there was none or it was cancelled.
  bool Wait(pa_operation* operation);
  // Called with the lock held, right after a stream's connect: waits until
  // it is ready or has failed, and gives the result.
  HRESULT WaitReady(pa_stream* stream);
  // Called with the lock held: a stream that has been ready and is no more
  // (device unloaded, server gone) gives AUDCLNT_E_DEVICE_INVALIDATED.
  static HRESULT StreamHealth(pa_stream* stream);
  // Hooks the stream's state changes to wake the waiters of this loop.
  void WatchStream(pa_stream* stream);

  // With a pa_operation completion as the callback's userdata.
  static void SignalSuccess(pa_stream*, int, void* loop);

 private:
  PulseContext() = default;
  pa_threaded_mainloop* m_loop = nullptr;
  pa_context* m_context = nullptr;
};

// Holds the event thread's lock for one scope.
class PulseLock : private NonCopyable {
 public:
  explicit PulseLock(pa_threaded_mainloop* loop) : m_loop(loop) { pa_threaded_mainloop_lock(loop); }
  ~PulseLock() { pa_threaded_mainloop_unlock(m_loop); }

 private:
  pa_threaded_mainloop* m_loop;
};

// What the server says of one sink or source.
struct PulseDevice {
  std::string name;
  std::string description;
  std::string monitorSource;  // sinks: the source that records what they play
  std::string formFactor;
  bool isMonitor = false;  // sources: the monitor of a sink
  bool unplugged = false;  // the active port says nothing is plugged in
  pa_sample_spec sampleFormat{};
  pa_channel_map map{};
};

// Pauses (cork) or runs a stream and waits for the server to do it; takes
// the loop's lock itself.
HRESULT CorkStream(PulseContext& context, pa_stream* stream, bool cork);

// Detaches a stream from its callbacks and the server, and drops it; takes
// the loop's lock itself.
void ReleaseStream(PulseContext& context, pa_stream* stream);

// The lock must not be held. Render devices are sinks, capture devices sources.
HRESULT QueryDefaultDeviceName(PulseContext& context, AudioFlow flow, std::string* name);
HRESULT QueryDevice(PulseContext& context, AudioFlow flow, const std::string& name,
                    PulseDevice* device);
HRESULT QueryDevices(PulseContext& context, AudioFlow flow, std::vector<PulseDevice>* devices);

// Formats between the server's description and the wave records.
WAVEFORMATEXTENSIBLE MixFormatOf(const pa_sample_spec& sampleFormat, const pa_channel_map& map);
// False when the format has no exact counterpart on the server. deviceMap
// orders channels that the format's mask cannot name.
bool PulseFormatOf(const WAVEFORMATEXTENSIBLE& format, const pa_channel_map& deviceMap,
                   pa_sample_spec* sampleFormat, pa_channel_map* map);

}  // namespace ov
