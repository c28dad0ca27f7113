// The family of sample conversions: one function for each pair of a source
// and a destination format, all of one signature, chosen once per stream so
// that no format test runs inside the sample loop.
#pragma once

#include <cstdint>

#include "audio/convert/SampleFormat.h"

namespace ov::audio {

// Converts the whole frames in nBytes of source and returns the bytes
// written; a trailing part of a frame is ignored.
using ConvertFunction = int32_t (*)(void* pDest, const void* pSource, int32_t nBytes);

// The member for a pair, or null when the pair is not supported.
ConvertFunction FindConvertFunction(SampleKind from, int fromChannels, SampleKind to,
                                    int toChannels);

// The same members without vector code. They define the results: the fast
// members are tested against them bit for bit.
ConvertFunction FindScalarConvertFunction(SampleKind from, int fromChannels, SampleKind to,
                                          int toChannels);

}  // namespace ov::audio
