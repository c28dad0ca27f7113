// The WMA formats that this machine can encode, for the audio catalogue.
#pragma once

#include "audio/AudioCatalogue.h"

namespace ov {

// WMA subtypes and format types, as the media types of the catalogue carry them.
inline constexpr GUID WMMEDIATYPE_Audio = {
    0x73647561, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID WMMEDIASUBTYPE_WMAudioV8 = {
    0x00000161, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID WMFORMAT_WaveFormatEx = {
    0x05589F81, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};

// Appends every format that the wmav2 encoder opens with, best first within
// each rate. The AudioCodecEnumerator of the catalogue.
HRESULT EnumAudioCodecs(AudioCodecList* allCodecInfo);

// The bit rate that a catalogue format is encoded at.
int64_t WmaBitRate(const WAVEFORMATEX& format);

}  // namespace ov
