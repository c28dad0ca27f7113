// Capture from one endpoint: a microphone, or the loopback of what a render
// endpoint plays. The client is bound to the endpoint it was made for and
// never follows a change of default; when the device goes away, reading
// fails with AUDCLNT_E_DEVICE_INVALIDATED.
#pragma once

#include <cstdint>
#include <memory>

#include "orvanta/types.h"
#include "platform/AudioEndpoint.h"

namespace ov {

class AudioCaptureClient;

class AudioClient {
 public:
  // Binds a client to the endpoint; nothing is captured before Initialize
  // and Start.
  static HRESULT Activate(const AudioEndpoint& endpoint, std::unique_ptr<AudioClient>* client);
  ~AudioClient();
  AudioClient(const AudioClient&) = delete;
  AudioClient& operator=(const AudioClient&) = delete;

  // The device's format at this moment.
  HRESULT GetMixFormat(WAVEFORMATEXTENSIBLE* format);
  // S_OK when format can be captured as it stands; S_FALSE with *hasClosest
  // set and *closest filled when a nearby one can; an error otherwise.
  HRESULT IsFormatSupported(const WAVEFORMATEXTENSIBLE& format, WAVEFORMATEXTENSIBLE* closest,
                            bool* hasClosest);
  // Opens the capture in format with a buffer of bufferDuration (100-ns);
  // loopback records what a render endpoint plays, and only a render
  // endpoint can be recorded that way. A format that cannot be captured
  // gives AUDCLNT_E_UNSUPPORTED_FORMAT.
  HRESULT Initialize(bool loopback, REFERENCE_TIME bufferDuration,
                     const WAVEFORMATEXTENSIBLE& format);
  // The packet reader of an initialised client.
  HRESULT GetCaptureClient(std::unique_ptr<AudioCaptureClient>* captureClient);
  HRESULT Start();
  HRESULT Stop();

  struct State;

 private:
  explicit AudioClient(std::shared_ptr<State> state);
  std::shared_ptr<State> m_state;
};

// Reads the packets of a started client, on one thread. Nothing here
// allocates.
class AudioCaptureClient {
 public:
  ~AudioCaptureClient();
  AudioCaptureClient(const AudioCaptureClient&) = delete;
  AudioCaptureClient& operator=(const AudioCaptureClient&) = delete;

  // Frames waiting; 0 when nothing is there yet.
  HRESULT GetNextPacketSize(uint32_t* frames);
  // The next packet. With *frames 0 there is nothing to release; otherwise
  // the data stays valid until ReleaseBuffer, which must follow on the same
  // thread.
  HRESULT GetBuffer(const BYTE** data, uint32_t* frames);
  // Frees the packet; 0 frames keeps it for the next GetBuffer.
  HRESULT ReleaseBuffer(uint32_t frames);

 private:
  friend class AudioClient;
  explicit AudioCaptureClient(std::shared_ptr<AudioClient::State> state);
  std::shared_ptr<AudioClient::State> m_state;
};

}  // namespace ov
