// Word to the host when audio devices, cameras or the display layout
// change, so that it can refresh its lists.
#pragma once

#include "orvanta/types.h"

// The host's side. The calls come on a thread of the engine's, one at a
// time, once a burst of changes has settled, and only when something the
// host lists has really changed. Unregistering from inside one of them is
// refused with a log line.
class OV_API DeviceNotifyCallback {
 public:
  // The displays changed; GetDisplayCount and GetDisplayInfo tell the new
  // layout, and the first display is in use again.
  virtual void OnDisplayChange() = 0;
  // A sound device came or went, or a default device changed; the records
  // of GetAudioDeviceInfo held from before may have been freed.
  virtual void OnAudioDeviceChange() = 0;
  virtual void OnCameraChange() = 0;

 protected:
  virtual ~DeviceNotifyCallback() = default;
};

extern "C" {
// Starts watching for pCallback until UnregisterDeviceNotifies; returns the
// handle of the watcher, or null for a null callback or when its thread
// cannot start.
OV_API void* RegisterDeviceNotifies(DeviceNotifyCallback* pCallback);
// Ends a watcher; no call to its callback follows. A null handle is ignored.
OV_API void UnregisterDeviceNotifies(void* handle);
}
