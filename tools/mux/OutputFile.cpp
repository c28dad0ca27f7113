#include "OutputFile.h"

#include <unistd.h>

#include "MuxLog.h"

namespace mux {

OutputFile::~OutputFile() {
  Close();
  if (!m_finished && !m_path.empty() && unlink(m_path.c_str()) == 0)
    Log(kWan, "mux: removed the unfinished %s\n", m_path.c_str());
}

void OutputFile::Close() {
  if (!m_context) return;
  if (m_context->pb) avio_closep(&m_context->pb);
  avformat_free_context(m_context);
  m_context = nullptr;
}

bool OutputFile::Open(const Container& container, const std::string& path) {
  int error = avformat_alloc_output_context2(&m_context, nullptr, container.format, path.c_str());
  if (error < 0 || !m_context) {
    Log(kErr, "mux: no %s muxer: %s\n", container.format, ErrorText(error));
    return false;
  }
  // Through the file protocol alone: a name like "pipe:1" is a file here.
  error = avio_open(&m_context->pb, ("file:" + path).c_str(), AVIO_FLAG_WRITE);
  if (error < 0) {
    Log(kErr, "mux: can't create %s: %s\n", path.c_str(), ErrorText(error));
    return false;
  }
  m_path = path;
  return true;
}

bool OutputFile::NeedsGlobalHeader() const {
  return (m_context->oformat->flags & AVFMT_GLOBALHEADER) != 0;
}

bool OutputFile::CanCarry(AVCodecID codec) const {
  const AVOutputFormat* format = m_context->oformat;
  const int answer = avformat_query_codec(format, codec, FF_COMPLIANCE_NORMAL);
  // Some muxers don't know (the MP3 muxer answers only for cover pictures);
  // their own default codecs they take.
  if (answer < 0) return codec == format->audio_codec || codec == format->video_codec;
  return answer > 0;
}

int OutputFile::AddStream(const AVCodecParameters* parameters, AVRational timeBase,
                          AVRational frameRate) {
  AVStream* stream = avformat_new_stream(m_context, nullptr);
  if (!stream || avcodec_parameters_copy(stream->codecpar, parameters) < 0) return -1;
  stream->codecpar->codec_tag = 0;
  stream->time_base = timeBase;
  if (frameRate.num > 0) {
    stream->avg_frame_rate = frameRate;
    stream->r_frame_rate = frameRate;
  }
  m_lastDts.push_back(INT64_MIN);
  return stream->index;
}

bool OutputFile::Begin() {
  const int error = avformat_write_header(m_context, nullptr);
  if (error < 0) {
    Log(kErr, "mux: can't start %s: %s\n", m_path.c_str(), ErrorText(error));
    return false;
  }
  return true;
}

bool OutputFile::Write(AVPacket* packet, int stream, AVRational sourceBase) {
  const AVRational base = m_context->streams[stream]->time_base;
  packet->stream_index = stream;
  packet->pts = av_rescale_q_rnd(packet->pts, sourceBase, base,
                                 static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
  packet->dts = av_rescale_q_rnd(packet->dts, sourceBase, base,
                                 static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
  packet->duration = av_rescale_q(packet->duration, sourceBase, base);
  int64_t& last = m_lastDts[static_cast<size_t>(stream)];
  if (packet->dts != AV_NOPTS_VALUE) {
    if (last != INT64_MIN && packet->dts <= last) {
      const int64_t shift = last + 1 - packet->dts;
      packet->dts += shift;
      if (packet->pts != AV_NOPTS_VALUE && packet->pts < packet->dts) packet->pts = packet->dts;
    }
    last = packet->dts;
  }
  const int error = av_write_frame(m_context, packet);
  if (error < 0) {
    Log(kErr, "mux: writing %s failed: %s\n", m_path.c_str(), ErrorText(error));
    return false;
  }
  return true;
}

bool OutputFile::Finish() {
  int error = av_write_trailer(m_context);
  if (error >= 0) error = avio_closep(&m_context->pb);
  if (error < 0) {
    Log(kErr, "mux: finishing %s failed: %s\n", m_path.c_str(), ErrorText(error));
    return false;
  }
  m_finished = true;
  return true;
}

}  // namespace mux
