// Shared pieces of the conversion and mux reader tests: formats, sample
// buffers, the log, wave temp files and tone measurement.
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

// The test program's log is opened once in a scratch documents folder;
// ovtest::LogMark reads it.

// A wave temp file as the recorder leaves it: the 68-byte header, then the
// samples.
void WriteWaveTempFile(const std::string& path, const WAVEFORMATEXTENSIBLE& format,
                       const std::vector<uint8_t>& samples);

// A sine of frequency f at amplitude a, phase 0, n frames of one channel.
std::vector<float> Sine(double f, double a, uint32_t rate, size_t n);

struct ToneMeasure {
  double frequency;   // from interpolated zero crossings
  double amplitude;   // of the best-fitting sine at that frequency
  double residualDb;  // what the sine leaves unexplained, against the sine
};

// Measures the middle of the signal, clear of start and end.
ToneMeasure MeasureTone(const std::vector<float>& x, uint32_t rate);

// The amplitude of the component at f, by correlation over the first
// `count` frames, which must hold whole cycles of f.
double AmplitudeAt(const std::vector<float>& x, uint32_t rate, double f, size_t count);

// Channel c of an interleaved buffer of the given channel count.
std::vector<float> Channel(const std::vector<float>& interleaved, int channels, int c);

}  // namespace audiotest
