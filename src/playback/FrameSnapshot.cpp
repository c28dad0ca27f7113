#include "playback/FrameSnapshot.h"

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include "core/Log.h"
#include "platform/Files.h"
#include "platform/SequentialFile.h"

HRESULT SaveFramePng(const wchar_t* path, const uint8_t* pixels, int32_t width, int32_t height) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  AVCodecContext* context = codec ? avcodec_alloc_context3(codec) : nullptr;
  AVFrame* frame = av_frame_alloc();
  AVPacket* packet = av_packet_alloc();
  SwsContext* convert = sws_getContext(width, height, AV_PIX_FMT_BGR0, width, height,
                                       AV_PIX_FMT_RGB24, SWS_POINT, nullptr, nullptr, nullptr);
  bool done = false;
  if (context && frame && packet && convert) {
    context->width = width;
    context->height = height;
    context->pix_fmt = AV_PIX_FMT_RGB24;
    context->time_base = AVRational{1, 1};
    frame->format = AV_PIX_FMT_RGB24;
    frame->width = width;
    frame->height = height;
    const int stride[1] = {width * 4};
    if (avcodec_open2(context, codec, nullptr) == 0 && av_frame_get_buffer(frame, 0) == 0 &&
        sws_scale(convert, &pixels, stride, 0, height, frame->data, frame->linesize) == height &&
        avcodec_send_frame(context, frame) == 0 && avcodec_send_frame(context, nullptr) == 0 &&
        avcodec_receive_packet(context, packet) == 0) {
      ov::RemoveFile(path);
      ov::SequentialFile file;
      done = file.Create(path) && file.Write(packet->data, static_cast<uint32_t>(packet->size));
    }
  }
  sws_freeContext(convert);
  av_packet_free(&packet);
  av_frame_free(&frame);
  avcodec_free_context(&context);
  if (!done) WriteLog(ov::kErr, "Failed to save the frame to %ls\n", path);
  return done ? S_OK : E_FAIL;
}
