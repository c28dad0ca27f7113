// The audio device and codec catalogue: all WMA formats, made once, the
// endpoint report in the log, and the two default devices with the formats
// that fit each.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "orvanta/audiodevices.h"

namespace ov {

// A format record and the media type it points to, in one block.
struct AudioCodecRecord {
  AudioCodecInfo info{};
  WM_MEDIA_TYPE mediaType{};
  alignas(8) BYTE format[64]{};  // WAVEFORMATEX and the codec's extra bytes
};
using AudioCodecList = std::vector<std::unique_ptr<AudioCodecRecord>>;
// Appends the formats that the encoder offers; what was added before a
// failure stays.
using AudioCodecEnumerator = HRESULT (*)(AudioCodecList* allCodecInfo);

struct AudioDeviceRecord {
  AudioDeviceInfo info{};
  std::vector<const AudioCodecInfo*> codecs;
};
using AudioDeviceTable = std::array<std::unique_ptr<AudioDeviceRecord>, 2>;

// At start-up: enumerates the formats once, writes the endpoint report and
// builds the device table.
void BuildAudioCatalogue(AudioCodecEnumerator enumerate);
// Fills a table from the default devices; a failure result when neither is
// found. Used again when the devices change.
HRESULT BuildAudioDeviceTable(AudioDeviceTable* table);
// The table that GetAudioDeviceInfo reads; the device watcher replaces its
// entries when the default devices change.
AudioDeviceTable& AudioDevicesInUse();

}  // namespace ov
