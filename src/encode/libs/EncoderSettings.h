// What an encoder library asks of libavcodec for each codec type: which
// encoder, how fast, and how good.
#pragma once

#include <cstdint>
#include <string>

namespace ov::enc {

// Codec types served by the libraries.
enum : int32_t { kH264 = 1, kH265 = 2, kMpeg2 = 3 };

enum class Backend { Software, Vaapi, Nvenc };

// The encoders' own upper bound on the distance between key frames, counted
// in frames of the nominal rate; the capture asks for one every five seconds
// anyway, and skipped frames make the encoder's count run slow.
constexpr int kKeyIntervalSeconds = 10;

struct BackendChoice {
  Backend backend;
  std::string device;  // render node for VA-API; empty otherwise
};

struct EncoderConfig {
  int32_t codecType;
  int32_t width;  // of the coded picture: even
  int32_t height;
  int32_t frameRate;  // nominal; time stamps carry the real pace
  int32_t quality;    // the recording's quality step
  int32_t threads;
};

// The size of the coded picture for a captured region: even (4:2:0), and
// at least what the codec's encoders take (libx265: 16 a side).
int32_t CodedSide(int32_t codecType, int32_t side);

// The libavcodec encoder of a backend for a codec type, or null.
const char* EncoderName(Backend backend, int32_t codecType);

// Quality steps 1 (smallest file) to 6 (best picture); any other value is
// the middle step 3, as for WMV recordings.
//
//   step | libx264 QP | libx265 CRF | MPEG-2 qscale | VA-API / NVENC QP
//   -----+------------+-------------+---------------+------------------
//     1  |     24     |     32      |      12       |        32
//     2  |     21     |     30      |       9       |        29
//     3  |     18     |     28      |       6       |        26
//     4  |     16     |     26      |       5       |        24
//     5  |     14     |     24      |       4       |        22
//     6  |     12     |     22      |       3       |        20
//
// libx264 runs at a constant QP: a rate factor makes it analyse a half-size
// copy of every frame first, a third of the time of an ultrafast encode. On
// a scrolling 1080p screen, QP 14 gave the PSNR and size of CRF 20 (51 dB)
// and QP 18 those of CRF 23, so the column is the former CRFs less six. The
// x265 column sits a few points above x264's former CRFs because x265 spends
// fewer bits at equal CRF for the same look; MPEG-2 hardware uses the qscale
// column.
struct QualityLevel {
  int x264Qp;
  int x265Crf;
  int mpeg2Qscale;
  int hardwareQp;
};
QualityLevel QualityFor(int32_t videoQuality);

// Encoder threads for a picture size and frame rate. Measured with libx264
// ultrafast and zero latency on two cores, more slice threads cost no more
// CPU time but cut each frame's latency (1080p: 17 ms with one, 7.5 with
// two; 2160p: 62 and 38): one thread up to about 1080p at 30 fps, where it
// keeps up with time to spare and the capture has the other core, then one
// more for each further 1080p30 of pixels a second, up to the cores (at most
// eight). libx264's own choice (1.5 a core) was slower and no cheaper.
int32_t EncoderThreads(int32_t width, int32_t height, int32_t frameRate);

}  // namespace ov::enc
