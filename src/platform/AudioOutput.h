// A playback stream on the default render device. It pulls its sound from a
// source as the device asks for it, keeps at most 200 ms queued ahead, and
// tells how much of the current run has been heard: the device's latency
// is taken off, so that the position is what comes out of the speakers now.
#pragma once

#include <cstdint>
#include <memory>

#include "orvanta/types.h"
#include "platform/NonCopyable.h"

namespace ov {

class AudioOutputSource {
 public:
  // Bytes delivered into dest, at most bytes; 0 at the end. Called on the
  // output's own thread while it runs.
  virtual uint32_t Read(void* dest, uint32_t bytes) = 0;

 protected:
  ~AudioOutputSource() = default;
};

class AudioOutput : private NonCopyable {
 public:
  // Opens the stream in format, stopped. AUDCLNT_E_UNSUPPORTED_FORMAT for a
  // format the server cannot take, AUDCLNT_E_SERVICE_NOT_RUNNING without a
  // server.
  static HRESULT Open(const WAVEFORMATEXTENSIBLE& format, AudioOutputSource* source,
                      std::unique_ptr<AudioOutput>* output);
  ~AudioOutput();

  // From stopped, begins a new run at position 0 with what the source gives
  // from where it stands; from paused, goes on.
  HRESULT Play();
  // Holds the sound and the position; what is queued stays.
  HRESULT Pause();
  // Drops what is queued; the position goes back to 0, and the source is
  // not read again before the next Play.
  HRESULT Stop();
  // Heard since the run began, in 100-ns units.
  int64_t Position();
  // The source of this run has given its last byte.
  bool Exhausted();
  // Linear gain, 0 to 65535 (full).
  HRESULT SetVolume(uint32_t level);

  struct State;

 private:
  explicit AudioOutput(std::unique_ptr<State> state);
  std::unique_ptr<State> m_state;
};

}  // namespace ov
