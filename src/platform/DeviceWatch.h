// What tells the engine that devices came or went: the sound server's
// sinks and sources, the video4linux nodes under /dev, and the X screen's
// layout. Each only reports that something happened; what changed is for
// the caller to find out by asking again.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace ov {

// One event of the sound server, as it arrives.
struct AudioDeviceEvent {
  enum class Kind { Added, Removed, Changed, DefaultChanged };
  Kind kind = Kind::Changed;
  bool capture = false;  // a source (microphone, monitor) rather than a sink
  uint32_t index = 0;    // the server's number of the sink or source
};

class AudioDeviceWatch {
 public:
  virtual ~AudioDeviceWatch() = default;
};

// Calls onEvent on the sound server's event thread for each change of a
// sink, a source or the server's defaults, until the watch is destroyed.
// Null without a sound server.
std::unique_ptr<AudioDeviceWatch> WatchAudioDevices(
    std::function<void(const AudioDeviceEvent&)> onEvent);

// A source of events read on the caller's thread when Fd() is readable.
class DeviceEventSource {
 public:
  virtual ~DeviceEventSource() = default;
  virtual int Fd() const = 0;
  // Reads what is pending without blocking; true when some of it concerns
  // the watched devices.
  virtual bool Drain() = 0;
  // True once the source can tell nothing more (its server went away); its
  // descriptor should then be watched no longer.
  virtual bool Lost() const { return false; }
  // For the screen's layout: the depth, and the size as height << 16 |
  // width, after the events drained so far.
  virtual uint64_t Depth() const { return 0; }
  virtual int64_t PackedSize() const { return 0; }
};

// Nodes named video* appearing in, leaving or changing under /dev. Null
// when /dev cannot be watched.
std::unique_ptr<DeviceEventSource> WatchVideoNodes();

// Screen size, output, crtc and monitor changes of the X screen, on a
// connection of the watch's own. Null without a server or RandR.
std::unique_ptr<DeviceEventSource> WatchScreenLayout();

}  // namespace ov
