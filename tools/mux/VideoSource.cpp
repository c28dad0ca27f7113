#include "VideoSource.h"

#include <deque>

#include "MuxLog.h"
#include "WatermarkBlend.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace mux {

namespace {

constexpr int kKeyIntervalSeconds = 10;

const char* CodecName(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_H264:
      return "H.264";
    case AV_CODEC_ID_HEVC:
      return "H.265";
    default:
      return "MPEG-2";
  }
}

// The frames as the encoder wrote them.
class CopySource : public VideoSource {
 public:
  explicit CopySource(std::unique_ptr<TempVideo> video) : VideoSource(std::move(video)) {}
  // False with a log line.
  bool Open() { return m_parameters && m_video->Probe(m_parameters); }
  int Next(AVPacket* packet) override {
    if (m_next >= m_video->End()) return kEnd;
    if (!m_video->Read(m_next, packet)) return kFailed;
    ++m_next;
    return kPacket;
  }
};

// Decodes every frame, lays the watermark on it when there is one, and
// encodes it again with the times of the index.
class TranscodeSource : public VideoSource {
 public:
  explicit TranscodeSource(std::unique_ptr<TempVideo> video) : VideoSource(std::move(video)) {}
  bool Open(const MuxJob& job, const OutputFile& output, AVCodecID target, bool watermark);
  int Next(AVPacket* packet) override;

 private:
  bool OpenDecoder(const AVCodecParameters* source);
  bool OpenEncoder(const AVCodecParameters* source, AVCodecID target, bool globalHeader);
  bool FeedEncoder();
  bool EncodePicture(AVFrame* decoded);

  CodecContextPtr m_decoder;
  CodecContextPtr m_encoder;
  FramePtr m_decoded;
  FramePtr m_work;
  PacketPtr m_input;
  std::unique_ptr<WatermarkBlend> m_blend;
  std::deque<int64_t> m_keyTimes;  // of key frames sent to the decoder
  bool m_decoderFlushed = false;
  bool m_encoderFlushed = false;
};

bool TranscodeSource::Open(const MuxJob& job, const OutputFile& output, AVCodecID target,
                           bool watermark) {
  if (!m_parameters) return false;
  AVCodecParameters* source = avcodec_parameters_alloc();
  const bool probed = source && m_video->Probe(source);
  bool ok = probed && OpenDecoder(source);
  if (ok && watermark) {
    m_blend = std::make_unique<WatermarkBlend>();
    if (!m_blend->Init(job.watermark, job.watermarkBytes, source->width, source->height)) {
      Log(kErr, "mux: bad record: no watermark raster for %dx%d\n", source->width, source->height);
      ok = false;
    }
  }
  ok = ok && OpenEncoder(source, target, output.NeedsGlobalHeader());
  avcodec_parameters_free(&source);
  m_input.reset(av_packet_alloc());
  m_decoded.reset(av_frame_alloc());
  return ok && m_input && m_decoded &&
         avcodec_parameters_from_context(m_parameters, m_encoder.get()) >= 0;
}

bool TranscodeSource::OpenDecoder(const AVCodecParameters* source) {
  const AVCodec* codec = avcodec_find_decoder(source->codec_id);
  m_decoder.reset(codec ? avcodec_alloc_context3(codec) : nullptr);
  if (!m_decoder || avcodec_parameters_to_context(m_decoder.get(), source) < 0) return false;
  // One thread: the encoder is by far the slower half and has the cores.
  m_decoder->thread_count = 1;
  m_decoder->pkt_timebase = kIndexTimeBase;
  if (avcodec_open2(m_decoder.get(), codec, nullptr) < 0) {
    Log(kErr, "mux: no %s decoder\n", CodecName(source->codec_id));
    return false;
  }
  if (source->format != AV_PIX_FMT_YUV420P && source->format != AV_PIX_FMT_YUVJ420P) {
    Log(kErr, "mux: temp video pictures are not 8-bit 4:2:0\n");
    return false;
  }
  return true;
}

bool TranscodeSource::OpenEncoder(const AVCodecParameters* source, AVCodecID target,
                                  bool globalHeader) {
  const char* name = target == AV_CODEC_ID_HEVC         ? "libx265"
                     : target == AV_CODEC_ID_MPEG2VIDEO ? "mpeg2video"
                                                        : "libx264";
  const AVCodec* codec = avcodec_find_encoder_by_name(name);
  m_encoder.reset(codec ? avcodec_alloc_context3(codec) : nullptr);
  if (!m_encoder) {
    Log(kErr, "mux: no %s encoder\n", name);
    return false;
  }
  AVCodecContext* e = m_encoder.get();
  e->width = source->width;
  e->height = source->height;
  e->pix_fmt = AV_PIX_FMT_YUV420P;
  e->time_base = kIndexTimeBase;
  e->framerate = FrameRate();
  e->sample_aspect_ratio = source->sample_aspect_ratio;
  e->color_range = source->color_range;
  e->color_primaries = source->color_primaries;
  e->color_trc = source->color_trc;
  e->colorspace = source->color_space;
  e->gop_size = FrameRate().num * kKeyIntervalSeconds;
  // Without reordering, decoding times are the index's times.
  e->max_b_frames = 0;
  if (globalHeader) e->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* options = nullptr;
  if (target == AV_CODEC_ID_H264) {
    av_dict_set(&options, "preset", "superfast", 0);
    av_dict_set(&options, "crf", "21", 0);
  } else if (target == AV_CODEC_ID_HEVC) {
    av_dict_set(&options, "preset", "ultrafast", 0);
    av_dict_set(&options, "crf", "26", 0);
    av_dict_set(&options, "x265-params", "log-level=error", 0);
  } else {
    e->flags |= AV_CODEC_FLAG_QSCALE;
    e->global_quality = FF_QP2LAMBDA * 3;
  }
  const int error = avcodec_open2(e, codec, &options);
  av_dict_free(&options);
  if (error < 0) {
    Log(kErr, "mux: %s does not open for %dx%d: %s\n", name, e->width, e->height, ErrorText(error));
    return false;
  }
  m_work.reset(av_frame_alloc());
  if (!m_work) return false;
  m_work->format = e->pix_fmt;
  m_work->width = e->width;
  m_work->height = e->height;
  return av_frame_get_buffer(m_work.get(), 0) >= 0;
}

int TranscodeSource::Next(AVPacket* packet) {
  for (;;) {
    const int error = avcodec_receive_packet(m_encoder.get(), packet);
    if (error >= 0) return kPacket;
    if (error == AVERROR_EOF) return kEnd;
    if (error != AVERROR(EAGAIN)) {
      Log(kErr, "mux: video encoding failed: %s\n", ErrorText(error));
      return kFailed;
    }
    if (!FeedEncoder()) return kFailed;
  }
}

// Gives the encoder its next picture, or the end.
bool TranscodeSource::FeedEncoder() {
  if (m_encoderFlushed) return false;
  for (;;) {
    const int error = avcodec_receive_frame(m_decoder.get(), m_decoded.get());
    if (error >= 0) return EncodePicture(m_decoded.get());
    if (error == AVERROR_EOF) {
      m_encoderFlushed = true;
      return avcodec_send_frame(m_encoder.get(), nullptr) >= 0;
    }
    if (error != AVERROR(EAGAIN)) {
      Log(kErr, "mux: video decoding failed: %s\n", ErrorText(error));
      return false;
    }
    if (m_next < m_video->End()) {
      if (!m_video->Read(m_next, m_input.get())) return false;
      if (m_video->IsKey(m_next)) m_keyTimes.push_back(m_input->pts);
      ++m_next;
      const int sent = avcodec_send_packet(m_decoder.get(), m_input.get());
      if (sent < 0) Log(kWan, "mux: frame %d does not decode: %s\n", m_next - 1, ErrorText(sent));
    } else if (!m_decoderFlushed) {
      m_decoderFlushed = true;
      avcodec_send_packet(m_decoder.get(), nullptr);
    } else {
      return false;
    }
  }
}

bool TranscodeSource::EncodePicture(AVFrame* decoded) {
  AVFrame* picture = decoded;
  if (m_blend) {
    if (decoded->width != m_work->width || decoded->height != m_work->height ||
        av_frame_make_writable(m_work.get()) < 0) {
      Log(kErr, "mux: a picture of %dx%d in a %dx%d video\n", decoded->width, decoded->height,
          m_work->width, m_work->height);
      av_frame_unref(decoded);
      return false;
    }
    m_blend->Apply(decoded, m_work.get());
    picture = m_work.get();
  }
  const int64_t time =
      decoded->pts != AV_NOPTS_VALUE ? decoded->pts : decoded->best_effort_timestamp;
  while (!m_keyTimes.empty() && m_keyTimes.front() < time) m_keyTimes.pop_front();
  const bool key = !m_keyTimes.empty() && m_keyTimes.front() == time;
  picture->pts = time;
  picture->pict_type = key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  const int error = avcodec_send_frame(m_encoder.get(), picture);
  av_frame_unref(decoded);
  if (error < 0) Log(kErr, "mux: video encoding failed: %s\n", ErrorText(error));
  return error >= 0;
}

}  // namespace

VideoSource::VideoSource(std::unique_ptr<TempVideo> video)
    : m_video(std::move(video)),
      m_parameters(avcodec_parameters_alloc()),
      m_next(m_video->First()) {}

VideoSource::~VideoSource() { avcodec_parameters_free(&m_parameters); }

std::unique_ptr<VideoSource> OpenVideoSource(const MuxJob& job, const OutputFile& output) {
  auto video = std::make_unique<TempVideo>();
  if (!video->Open(job)) return nullptr;
  const AVCodecID codec = video->Codec();
  const bool carried = output.CanCarry(codec);
  const auto& header = video->Header();
  // A picture that could not be loaded leaves a raster that covers nothing:
  // the frames would come out as they went in.
  bool watermark = job.watermark != nullptr;
  if (watermark &&
      !WatermarkBlend::Covers(job.watermark, job.watermarkBytes, static_cast<int>(header.width),
                              static_cast<int>(header.height))) {
    Log(kMsg, "mux: the watermark covers nothing\n");
    watermark = false;
  }
  Log(kMsg, "mux: video %s %ux%u, frames %d..%d of %s\n", CodecName(codec), header.width,
      header.height, job.firstFrame, job.endFrame, job.videoPath.c_str());
  if (carried && !watermark) {
    auto copy = std::make_unique<CopySource>(std::move(video));
    if (!copy->Open()) return nullptr;
    return copy;
  }

  const AVCodecID target = carried ? codec : AV_CODEC_ID_H264;
  if (!output.CanCarry(target)) {
    Log(kErr, "mux: the container takes no %s video\n", CodecName(target));
    return nullptr;
  }
  if (watermark)
    Log(kMsg, "mux: watermark: the video is decoded and encoded again as %s\n", CodecName(target));
  else
    Log(kMsg, "mux: the container takes no %s: the video is encoded again as %s\n",
        CodecName(codec), CodecName(target));
  auto transcode = std::make_unique<TranscodeSource>(std::move(video));
  if (!transcode->Open(job, output, target, watermark)) return nullptr;
  return transcode;
}

}  // namespace mux
