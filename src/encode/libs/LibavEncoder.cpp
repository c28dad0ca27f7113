#include "encode/libs/LibavEncoder.h"

#include <string>

#include "encode/libs/EncoderLog.h"
#include "formats/FrameIndex.h"

extern "C" {
#include <libavutil/hwcontext.h>
#include <libavutil/opt.h>
}

namespace ov::enc {

namespace {

constexpr int kHardwareSurfaces = 16;

void SetInt(AVDictionary** options, const char* key, int value) {
  av_dict_set_int(options, key, value, 0);
}

void SetSoftwareOptions(const EncoderConfig& config, AVCodecContext* context,
                        AVDictionary** options, int* qscaleLambda) {
  QualityLevel quality = QualityFor(config.quality);
  switch (config.codecType) {
    case kH265: {
      av_dict_set(options, "preset", "ultrafast", 0);
      av_dict_set(options, "tune", "zerolatency", 0);
      SetInt(options, "crf", quality.x265Crf);
      SetInt(options, "forced-idr", 1);
      // libx265 sizes its own thread pool; hold it to our share of the cores.
      std::string params =
          "log-level=error:frame-threads=1:pools=" + std::to_string(config.threads);
      av_dict_set(options, "x265-params", params.c_str(), 0);
      break;
    }
    case kMpeg2:
      // Without B-pictures every GOP is closed in effect; the flag itself
      // would switch off the scene-change I-pictures.
      context->flags |= AV_CODEC_FLAG_QSCALE | AV_CODEC_FLAG_LOW_DELAY;
      context->global_quality = FF_QP2LAMBDA * quality.mpeg2Qscale;
      *qscaleLambda = context->global_quality;
      context->thread_type = FF_THREAD_SLICE;
      // Frame rates outside MPEG-2's table are written as the nearest one;
      // the index carries the real times.
      context->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
      break;
    default:
      break;
  }
}

}  // namespace

LibavEncoder::~LibavEncoder() { Close(); }

void LibavEncoder::Close() {
  m_x264.Close();
  avcodec_free_context(&m_context);
  av_frame_free(&m_hwPicture);
  av_buffer_unref(&m_device);
}

const char* LibavEncoder::Name() const {
  return m_x264.IsOpen() ? "libx264" : m_context ? m_context->codec->name : "none";
}

void LibavEncoder::SetOptions(Backend backend, const EncoderConfig& config,
                              AVDictionary** options) {
  QualityLevel quality = QualityFor(config.quality);
  switch (backend) {
    case Backend::Software:
      SetSoftwareOptions(config, m_context, options, &m_qscaleLambda);
      break;
    case Backend::Vaapi:
      av_dict_set(options, "rc_mode", "CQP", 0);
      m_context->global_quality =
          config.codecType == kMpeg2 ? quality.mpeg2Qscale : quality.hardwareQp;
      break;
    case Backend::Nvenc:
      av_dict_set(options, "preset", "p1", 0);
      av_dict_set(options, "tune", "ll", 0);
      av_dict_set(options, "rc", "constqp", 0);
      SetInt(options, "qp", quality.hardwareQp);
      SetInt(options, "forced-idr", 1);
      SetInt(options, "zerolatency", 1);
      SetInt(options, "delay", 0);
      break;
  }
}

int LibavEncoder::OpenHardwareFrames(const BackendChoice& choice, const EncoderConfig& config) {
  int error =
      av_hwdevice_ctx_create(&m_device, AV_HWDEVICE_TYPE_VAAPI, choice.device.c_str(), nullptr, 0);
  if (error < 0) return error;
  AVBufferRef* frames = av_hwframe_ctx_alloc(m_device);
  if (!frames) return AVERROR(ENOMEM);
  auto* framesContext = reinterpret_cast<AVHWFramesContext*>(frames->data);
  framesContext->format = AV_PIX_FMT_VAAPI;
  framesContext->sw_format = AV_PIX_FMT_NV12;
  framesContext->width = config.width;
  framesContext->height = config.height;
  framesContext->initial_pool_size = kHardwareSurfaces;
  error = av_hwframe_ctx_init(frames);
  if (error >= 0) m_context->hw_frames_ctx = av_buffer_ref(frames);
  av_buffer_unref(&frames);
  if (error < 0) return error;
  m_hwPicture = av_frame_alloc();
  return m_hwPicture ? 0 : AVERROR(ENOMEM);
}

int LibavEncoder::Open(const BackendChoice& choice, const EncoderConfig& config) {
  Close();
  if (choice.backend == Backend::Software && config.codecType == kH264) {
    m_inputFormat = AV_PIX_FMT_YUV420P;
    m_ptsAreTicks = true;
    return m_x264.Open(config);
  }
  const char* name = EncoderName(choice.backend, config.codecType);
  const AVCodec* codec = name ? avcodec_find_encoder_by_name(name) : nullptr;
  if (!codec) return AVERROR_ENCODER_NOT_FOUND;
  m_context = avcodec_alloc_context3(codec);
  if (!m_context) return AVERROR(ENOMEM);

  m_ptsAreTicks = !(choice.backend == Backend::Software && config.codecType == kMpeg2);
  m_context->width = config.width;
  m_context->height = config.height;
  m_context->framerate = AVRational{config.frameRate, 1};
  m_context->time_base = m_ptsAreTicks ? AVRational{1, static_cast<int>(kIndexClock)}
                                       : AVRational{1, config.frameRate};
  m_context->gop_size = config.frameRate * kKeyIntervalSeconds;
  m_context->max_b_frames = 0;
  m_context->thread_count = config.threads;
  m_context->color_range = AVCOL_RANGE_MPEG;
  m_context->colorspace = AVCOL_SPC_BT709;
  m_context->color_primaries = AVCOL_PRI_BT709;
  m_context->color_trc = AVCOL_TRC_BT709;

  int error = 0;
  switch (choice.backend) {
    case Backend::Software:
      m_inputFormat = AV_PIX_FMT_YUV420P;
      m_context->pix_fmt = AV_PIX_FMT_YUV420P;
      break;
    case Backend::Vaapi:
      m_inputFormat = AV_PIX_FMT_NV12;
      m_context->pix_fmt = AV_PIX_FMT_VAAPI;
      error = OpenHardwareFrames(choice, config);
      break;
    case Backend::Nvenc:
      m_inputFormat = AV_PIX_FMT_NV12;
      m_context->pix_fmt = AV_PIX_FMT_NV12;
      break;
  }
  if (error >= 0) {
    AVDictionary* options = nullptr;
    SetOptions(choice.backend, config, &options);
    RouteLibavLog();
    error = avcodec_open2(m_context, codec, &options);
    av_dict_free(&options);
  }
  if (error < 0) Close();
  return error;
}

int LibavEncoder::Send(AVFrame* picture, int64_t pts, bool key, const PictureArea& changed) {
  if (m_x264.IsOpen()) return m_x264.Send(picture, pts, key, changed);
  if (!picture) return avcodec_send_frame(m_context, nullptr);
  picture->pts = pts;
  picture->pict_type = key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  picture->quality = m_qscaleLambda;
  if (!m_hwPicture) return avcodec_send_frame(m_context, picture);

  int error = av_hwframe_get_buffer(m_context->hw_frames_ctx, m_hwPicture, 0);
  if (error >= 0) error = av_hwframe_transfer_data(m_hwPicture, picture, 0);
  if (error >= 0) error = av_frame_copy_props(m_hwPicture, picture);
  if (error >= 0) error = avcodec_send_frame(m_context, m_hwPicture);
  av_frame_unref(m_hwPicture);
  return error;
}

int LibavEncoder::Receive(AVPacket* packet) {
  return m_x264.IsOpen() ? m_x264.Receive(packet) : avcodec_receive_packet(m_context, packet);
}

bool CanOpen(const BackendChoice& choice, int32_t codecType) {
  constexpr int kProbeWidth = 320, kProbeHeight = 240, kProbeRate = 30;
  LibavEncoder encoder;
  return encoder.Open(choice, {codecType, kProbeWidth, kProbeHeight, kProbeRate, 3, 1}) >= 0;
}

}  // namespace ov::enc
