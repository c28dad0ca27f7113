#include "audio/AudioCatalogue.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>

#include "audio/convert/FormatLog.h"
#include "core/Log.h"
#include "platform/AudioEndpoint.h"

namespace ov {

namespace {

constexpr WORD kWmaV8 = 0x161;
constexpr WORD kWmaV9 = 0x162;

AudioCodecList allCodecInfo;
AudioDeviceTable g_AudioDevices;

const char* FormFactorText(uint32_t formFactor) {
  static const char* const kTexts[] = {"Remote Network Device",
                                       "Speakers",
                                       "Line Level",
                                       "Headphones",
                                       "Microphone",
                                       "Headset",
                                       "Handset",
                                       "Unknown Digital Passthrough",
                                       "SPDIF",
                                       "HDMI",
                                       "Unknown"};
  return formFactor < std::size(kTexts) ? kTexts[formFactor] : "Not defined";
}

std::wstring StateText(uint32_t state) {
  static const wchar_t* const kBits[] = {L"ACTIVE", L"DISABLED", L"NOTPRESENT", L"UNPLUGGED"};
  wchar_t value[16];
  std::swprintf(value, std::size(value), L"0x%X(", state);
  std::wstring text = value;
  bool first = true;
  for (size_t bit = 0; bit < std::size(kBits); ++bit) {
    if (!(state & (1u << bit))) continue;
    if (!first) text += L",";
    text += kBits[bit];
    first = false;
  }
  return text + L")";
}

std::wstring Cut(const std::wstring& text) { return text.substr(0, 127); }

void ReportEndpoints(AudioFlow flow) {
  WriteLog(kMsg, "===========================%s===========================\n",
           flow == AudioFlow::Render ? "Audio Render Device" : "Audio Capture Device");
  std::vector<AudioEndpoint> endpoints;
  HRESULT hr;
  if (OV_FAILED(hr, EnumAudioEndpoints(flow, &endpoints))) return;
  for (size_t i = 0; i < endpoints.size(); ++i) {
    const AudioEndpoint& e = endpoints[i];
    WriteLog(kMsg, "[%d]:\n\tDevice name:%ls\n\tForm factor:%s\n\tID:%ls\n\tState:%ls\n",
             static_cast<int>(i), Cut(e.name).c_str(), FormFactorText(e.formFactor),
             Cut(e.id).c_str(), StateText(e.state).c_str());
  }
}

std::unique_ptr<AudioDeviceRecord> MakeDevice(AudioFlow flow) {
  const bool render = flow == AudioFlow::Render;
  AudioEndpoint endpoint;
  HRESULT hr;
  if (OV_FAILED(hr, GetDefaultAudioEndpoint(flow, &endpoint))) return nullptr;
  auto device = std::make_unique<AudioDeviceRecord>();
  AudioDeviceInfo& info = device->info;
  std::wcsncpy(info.szName, Cut(endpoint.name).c_str(), 127);
  std::wcsncpy(info.szId, Cut(endpoint.id).c_str(), 127);
  WriteLog(kMsg, "%s:%ls\n", render ? "Render Device" : "Capture Device", info.szName);
  const WAVEFORMATEX& mix = endpoint.mixFormat.Format;
  audio::LogFormat(render ? "Render Device Format" : "Capture Device Format", mix);
  const size_t size = std::min<size_t>(sizeof(WAVEFORMATEX) + mix.cbSize, sizeof info.FormatBytes);
  std::memcpy(info.FormatBytes, &endpoint.mixFormat, std::min(size, sizeof endpoint.mixFormat));
  return device;
}

// The device's format as the rules compare it: plain tag, at most 6 channels.
WAVEFORMATEX WantedFormat(const AudioDeviceInfo& info) {
  WAVEFORMATEX wanted{};
  std::memcpy(&wanted, &info.Format, 16);
  wanted.cbSize = info.Format.Format.cbSize;
  if (wanted.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
    wanted.wFormatTag = static_cast<WORD>(info.Format.SubFormat.Data1 & 0xFFFF);
    wanted.cbSize = 0;
  }
  wanted.nChannels = std::min<WORD>(wanted.nChannels, 6);
  return wanted;
}

// Rules 0-7: the newer codec at the device's rate and channels first, then
// the older one, then whatever 16-bit format is no richer than the device,
// then any 16-bit format at all.
bool Fits(int rule, const WAVEFORMATEX& f, const WAVEFORMATEX& device) {
  const bool sameRate = f.nSamplesPerSec == device.nSamplesPerSec;
  if (rule < 6) {
    const WORD tag = rule < 3 ? kWmaV9 : kWmaV8;
    if (f.wFormatTag != tag || !sameRate) return false;
    switch (rule % 3) {
      case 0:
        return f.nChannels == device.nChannels;
      case 1:
        return f.nChannels < device.nChannels;
      default:
        return true;
    }
  }
  if (f.wBitsPerSample != 16) return false;
  if (rule == 7) return true;
  return f.nSamplesPerSec <= device.nSamplesPerSec && f.nChannels <= device.nChannels;
}

void MatchCodecs(AudioDeviceRecord* device) {
  const WAVEFORMATEX wanted = WantedFormat(device->info);
  for (int rule = 0; rule < 8 && device->codecs.empty(); ++rule)
    for (const auto& record : allCodecInfo)
      if (Fits(rule, *record->info.pFormat, wanted)) device->codecs.push_back(&record->info);
  device->info.Codecs = device->codecs.data();
  device->info.nCodecs = static_cast<int32_t>(device->codecs.size());
}

}  // namespace

HRESULT BuildAudioDeviceTable(AudioDeviceTable* table) {
  WriteLog(kMsg, "===========================Audio Default Devices===========================\n");
  (*table)[0] = MakeDevice(AudioFlow::Render);
  (*table)[1] = MakeDevice(AudioFlow::Capture);
  if (!(*table)[0] && !(*table)[1]) {
    WriteLog(kErr, "Not find audio device!\n");
    return E_FAIL;
  }
  for (auto& device : *table)
    if (device) MatchCodecs(device.get());
  return S_OK;
}

AudioDeviceTable& AudioDevicesInUse() { return g_AudioDevices; }

void BuildAudioCatalogue(AudioCodecEnumerator enumerate) {
  HRESULT hr;
  if (OV_FAILED(hr, enumerate(&allCodecInfo))) return;
  if (allCodecInfo.empty()) {
    WriteLog(kErr, "Not find audio codec!\n");
    return;
  }
  ReportEndpoints(AudioFlow::Render);
  ReportEndpoints(AudioFlow::Capture);
  BuildAudioDeviceTable(&g_AudioDevices);
}

}  // namespace ov

extern "C" {

const AudioDeviceInfo* GetAudioDeviceInfo(int i) {
  if (i < 0 || i > 1) {
    OV_BAD_ARG(i);
    return nullptr;
  }
  const auto& device = ov::g_AudioDevices[static_cast<size_t>(i)];
  return device ? &device->info : nullptr;
}

int GetAudioCodecInfoCount(int i) {
  const AudioDeviceInfo* device = GetAudioDeviceInfo(i);
  return device ? device->nCodecs : 0;
}

const AudioCodecInfo* GetAudioCodecInfo(int i, int n) {
  const AudioDeviceInfo* device = GetAudioDeviceInfo(i);
  if (n < 0 || !device || n >= device->nCodecs) {
    WriteLog(ov::kErr, "Error Audio Codec(%d) Index:%d\n", i, n);
    return nullptr;
  }
  return device->Codecs[n];
}
}
