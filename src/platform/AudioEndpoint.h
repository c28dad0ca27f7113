// The sound server's devices as the audio path sees them: a render endpoint
// (what the system plays, recorded back by loopback) and a capture endpoint
// (a microphone), each with its friendly name and its own mix format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "orvanta/types.h"

namespace ov {

enum class AudioFlow : int32_t { Render = 0, Capture = 1 };

// Results the audio layer shares with its callers.
inline constexpr HRESULT AUDCLNT_E_NOT_INITIALIZED = static_cast<HRESULT>(0x88890001u);
inline constexpr HRESULT AUDCLNT_E_ALREADY_INITIALIZED = static_cast<HRESULT>(0x88890002u);
inline constexpr HRESULT AUDCLNT_E_WRONG_ENDPOINT_TYPE = static_cast<HRESULT>(0x88890003u);
inline constexpr HRESULT AUDCLNT_E_DEVICE_INVALIDATED = static_cast<HRESULT>(0x88890004u);
inline constexpr HRESULT AUDCLNT_E_OUT_OF_ORDER = static_cast<HRESULT>(0x88890007u);
inline constexpr HRESULT AUDCLNT_E_UNSUPPORTED_FORMAT = static_cast<HRESULT>(0x88890008u);
inline constexpr HRESULT AUDCLNT_E_SERVICE_NOT_RUNNING = static_cast<HRESULT>(0x88890010u);
inline constexpr HRESULT E_NOTFOUND = static_cast<HRESULT>(0x80070490u);

// Endpoint state bits.
inline constexpr uint32_t DEVICE_STATE_ACTIVE = 0x1;
inline constexpr uint32_t DEVICE_STATE_DISABLED = 0x2;
inline constexpr uint32_t DEVICE_STATE_NOTPRESENT = 0x4;
inline constexpr uint32_t DEVICE_STATE_UNPLUGGED = 0x8;

// Form factors, numbered as the endpoint report prints them.
enum AudioFormFactor : uint32_t {
  RemoteNetworkDevice = 0,
  Speakers = 1,
  LineLevel = 2,
  Headphones = 3,
  Microphone = 4,
  Headset = 5,
  Handset = 6,
  UnknownDigitalPassthrough = 7,
  SPDIF = 8,
  DigitalAudioDisplayDevice = 9,
  UnknownFormFactor = 10,
};

struct AudioEndpoint {
  AudioFlow flow = AudioFlow::Render;
  std::wstring id;    // the server's name for the device
  std::wstring name;  // the friendly name
  uint32_t formFactor = UnknownFormFactor;
  uint32_t state = DEVICE_STATE_ACTIVE;
  // The device's own format, extensible; the samples of a capture in this
  // format are the device's, unchanged.
  WAVEFORMATEXTENSIBLE mixFormat{};
};

// The default endpoint of a flow: E_NOTFOUND when there is none,
// AUDCLNT_E_SERVICE_NOT_RUNNING without a sound server.
HRESULT GetDefaultAudioEndpoint(AudioFlow flow, AudioEndpoint* endpoint);

// The present endpoints of a flow, in the server's order.
HRESULT EnumAudioEndpoints(AudioFlow flow, std::vector<AudioEndpoint>* endpoints);

}  // namespace ov
