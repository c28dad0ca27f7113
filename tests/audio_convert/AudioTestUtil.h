// Shared pieces of the conversion and mux reader tests: formats, sample
// buffers and wave temp files. The program's log is
// opened once in a scratch documents folder, for ovtest::LogMark.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "audio/convert/SampleFormat.h"
#include "orvanta/types.h"
#include "support/LogMark.h"

namespace audiotest {

using ov::audio::SampleKind;

// An extensible format unless told otherwise, with consistent block and
// byte rate.
WAVEFORMATEXTENSIBLE MakeFormat(SampleKind kind, int channels, uint32_t rate,
                                bool extensible = true);

template <typename T>
std::vector<uint8_t> Bytes(const std::vector<T>& v) {
  std::vector<uint8_t> b(v.size() * sizeof(T));
  if (!b.empty()) std::memcpy(b.data(), v.data(), b.size());
  return b;
}

template <typename T>
std::vector<T> As(const uint8_t* p, size_t nBytes) {
  std::vector<T> v(nBytes / sizeof(T));
  if (!v.empty()) std::memcpy(v.data(), p, v.size() * sizeof(T));
  return v;
}

template <typename T>
std::vector<T> As(const std::vector<uint8_t>& b) {
  return As<T>(b.data(), b.size());
}

// Runs one member of the conversion family over the whole input.
std::vector<uint8_t> RunMember(SampleKind from, int fromChannels, SampleKind to, int toChannels,
                               const std::vector<uint8_t>& input);

// A wave temp file written by the recorder's own writer.
void WriteWaveTempFile(const std::string& path, const WAVEFORMATEXTENSIBLE& format,
                       const std::vector<uint8_t>& samples);

}  // namespace audiotest
