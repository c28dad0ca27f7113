// Owners for FFmpeg's objects, so that every exit path frees them.
#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

namespace mux {

struct CodecContextFree {
  void operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
};
struct FrameFree {
  void operator()(AVFrame* p) const { av_frame_free(&p); }
};
struct PacketFree {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct BsfFree {
  void operator()(AVBSFContext* p) const { av_bsf_free(&p); }
};
struct ResamplerFree {
  void operator()(SwrContext* p) const { swr_free(&p); }
};

using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFree>;
using FramePtr = std::unique_ptr<AVFrame, FrameFree>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFree>;
using BsfPtr = std::unique_ptr<AVBSFContext, BsfFree>;
using ResamplerPtr = std::unique_ptr<SwrContext, ResamplerFree>;

// FFmpeg's text for an error code.
inline const char* ErrorText(int error) {
  thread_local char text[AV_ERROR_MAX_STRING_SIZE];
  return av_make_error_string(text, sizeof text, error);
}

// Results of the packet sources.
enum : int { kEnd = 0, kPacket = 1, kFailed = -1 };

}  // namespace mux
