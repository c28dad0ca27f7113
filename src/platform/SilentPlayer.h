// A running playback stream on a render endpoint that never queues a sample.
// Loopback capture of that endpoint then delivers a steady stream of
// silence even while nothing else plays, and the server does not suspend
// the device.
#pragma once

#include <memory>

#include "orvanta/types.h"
#include "platform/AudioEndpoint.h"
#include "platform/NonCopyable.h"

namespace ov {

class SilentPlayer : private NonCopyable {
 public:
  // Opens the stream in the endpoint's own format, not yet running.
  static HRESULT Open(const AudioEndpoint& endpoint, std::unique_ptr<SilentPlayer>* player);
  ~SilentPlayer();

  HRESULT Start();
  HRESULT Stop();

  struct State;

 private:
  explicit SilentPlayer(std::unique_ptr<State> state);
  std::unique_ptr<State> m_state;
};

}  // namespace ov
