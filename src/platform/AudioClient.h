// Capture from one endpoint: a microphone, or the loopback of what a render
// endpoint plays. The client is bound to the endpoint it was made for and
// never follows a change of default; when the device goes away, reading
// fails with AUDCLNT_E_DEVICE_INVALIDATED.
//
// Every packet comes with the time at which its first frame is heard, on the
// client's own clock: a loopback's samples arrive before they are played, a
// microphone's after they were spoken, and neither arrives at a steady pace.
// Readers that keep time go by that clock, never by the amount delivered.
#pragma once

#include <cstdint>
#include <memory>

#include "orvanta/types.h"
#include "platform/AudioEndpoint.h"

namespace ov {

// The packet's time is an estimate from before the server told its timing;
// take the time of arrival instead.
inline constexpr uint32_t AUDCLNT_BUFFERFLAGS_TIMESTAMP_ERROR = 0x4;

// The time that packet times are told on, in 100-ns units, and the waiting
// of a reader that polls it.
class AudioClock {
 public:
  virtual ~AudioClock() = default;
  virtual int64_t Now() = 0;
  virtual void Sleep(uint32_t ms) = 0;
};

class AudioCaptureClient;

class AudioClient {
 public:
  // Binds a client of the sound server to the endpoint; nothing is captured
  // before Initialize and Start.
  static HRESULT Activate(const AudioEndpoint& endpoint, std::unique_ptr<AudioClient>* client);
  virtual ~AudioClient() = default;

  // The device's format at this moment.
  virtual HRESULT GetMixFormat(WAVEFORMATEXTENSIBLE* format) = 0;
  // S_OK when format can be captured as it stands; S_FALSE with *hasClosest
  // set and *closest filled when a nearby one can; an error otherwise.
  virtual HRESULT IsFormatSupported(const WAVEFORMATEXTENSIBLE& format,
                                    WAVEFORMATEXTENSIBLE* closest, bool* hasClosest) = 0;
  // Opens the capture in format with a buffer of bufferDuration (100-ns);
  // loopback records what a render endpoint plays, and only a render
  // endpoint can be recorded that way. A format that cannot be captured
  // gives AUDCLNT_E_UNSUPPORTED_FORMAT.
  virtual HRESULT Initialize(bool loopback, REFERENCE_TIME bufferDuration,
                             const WAVEFORMATEXTENSIBLE& format) = 0;
  // The packet reader of an initialised client.
  virtual HRESULT GetCaptureClient(std::unique_ptr<AudioCaptureClient>* captureClient) = 0;
  virtual HRESULT Start() = 0;
  virtual HRESULT Stop() = 0;
  // The clock of the packet times; lives as long as the client.
  virtual AudioClock& Clock() = 0;
};

// Reads the packets of a started client, on one thread. Nothing here
// allocates.
class AudioCaptureClient {
 public:
  virtual ~AudioCaptureClient() = default;

  // Frames waiting; 0 when nothing is there yet.
  virtual HRESULT GetNextPacketSize(uint32_t* frames) = 0;
  // The next packet, with *heardAt the time at which its first frame is
  // heard and *flags AUDCLNT_BUFFERFLAGS_*. With *frames 0 there is nothing
  // to release; otherwise the data stays valid until ReleaseBuffer, which
  // must follow on the same thread, soon: the reader copies what it keeps.
  virtual HRESULT GetBuffer(const BYTE** data, uint32_t* frames, uint32_t* flags,
                            int64_t* heardAt) = 0;
  // Frees the first frames of the packet; the rest comes again with the next
  // GetBuffer, 0 keeps all of it.
  virtual HRESULT ReleaseBuffer(uint32_t frames) = 0;
};

}  // namespace ov
