// Track volume and the mix of two tracks, on 16-bit and float samples. The
// two mixes differ on purpose: the integer one amplifies the sum by 1.5, the
// float one attenuates it by 1.5, and each is then limited to full scale.
#pragma once

#include <cstdint>

namespace ov::audio {

// Scales nBytes of samples in place by lVolume percent, linearly and without
// a limit: a 16-bit result keeps its low 16 bits.
using VolumeFunction = void (*)(void* pSamples, int32_t nBytes, int32_t lVolume);
// Mixes nBytes of pOther into pDest.
using MixFunction = void (*)(void* pDest, const void* pOther, int32_t nBytes);

void VolumeI16(void* pSamples, int32_t nBytes, int32_t lVolume);
void VolumeF32(void* pSamples, int32_t nBytes, int32_t lVolume);

void MixI16(void* pDest, const void* pOther, int32_t nBytes);
void MixF32(void* pDest, const void* pOther, int32_t nBytes);

// The mixes without vector code, which define the results.
void ScalarMixI16(void* pDest, const void* pOther, int32_t nBytes);
void ScalarMixF32(void* pDest, const void* pOther, int32_t nBytes);

}  // namespace ov::audio
