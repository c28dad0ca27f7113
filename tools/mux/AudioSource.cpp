#include "AudioSource.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "MuxLog.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace mux {

namespace {

constexpr int kDefaultFrameSize = 1024;

const AVCodec* FindEncoder(const AudioEncoding& encoding) {
  for (const char* name : encoding.encoders)
    if (name)
      if (const AVCodec* codec = avcodec_find_encoder_by_name(name)) return codec;
  return nullptr;
}

// The stream's bit rate: the record's setting in kbit/s, else what suits
// the encoder and the channels. MP3 without a setting is variable (about
// 190 kbit/s in stereo), which suits every sample rate.
void SetRate(const MuxJob& job, AVCodecContext* encoder) {
  const int channels = job.audioChannels;
  if (encoder->codec_id == AV_CODEC_ID_MP3 && job.audioSetting <= 0) {
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = FF_QP2LAMBDA * 2;
    return;
  }
  int64_t rate = job.audioSetting > 0 ? job.audioSetting * 1000LL : 0;
  if (rate == 0) {
    if (encoder->codec_id == AV_CODEC_ID_AC3)
      rate = channels > 2 ? 448000 : 192000;
    else
      rate = 64000LL * channels;
  }
  if (encoder->codec_id == AV_CODEC_ID_AAC)  // the most an AAC frame can hold
    rate = std::min<int64_t>(rate, 6144LL * job.audioRate / 1024 * channels);
  encoder->bit_rate = rate;
}

AVSampleFormat EncoderFormat(const AVCodec* codec) {
  if (!codec->sample_fmts) return AV_SAMPLE_FMT_FLTP;
  for (const AVSampleFormat* f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f)
    if (*f == AV_SAMPLE_FMT_FLTP) return *f;
  return codec->sample_fmts[0];
}

}  // namespace

bool AudioSource::Open(const MuxJob& job, bool globalHeader) {
  const AudioEncoding& encoding = *FindAudioEncoding(job.audioEncoder);
  const AVCodec* codec = FindEncoder(encoding);
  if (!codec) {
    Log(kErr, "mux: no audio encoder for %s\n", job.audioEncoder.c_str());
    return false;
  }
  m_encoder.reset(avcodec_alloc_context3(codec));
  if (!m_encoder) return false;
  AVCodecContext* e = m_encoder.get();
  av_channel_layout_default(&e->ch_layout, job.audioChannels);
  e->sample_rate = job.audioRate;
  e->sample_fmt = EncoderFormat(codec);
  e->time_base = AVRational{1, job.audioRate};
  SetRate(job, e);
  if (globalHeader) e->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  int error = avcodec_open2(e, codec, nullptr);
  if (error < 0) {
    Log(kErr, "mux: audio encoder %s does not open for %d Hz, %d channels: %s\n", codec->name,
        job.audioRate, job.audioChannels, ErrorText(error));
    return false;
  }
  m_frameSize = e->frame_size > 0 ? e->frame_size : kDefaultFrameSize;

  SwrContext* resampler = nullptr;
  error = swr_alloc_set_opts2(&resampler, &e->ch_layout, e->sample_fmt, e->sample_rate,
                              &e->ch_layout, encoding.rawFormat, e->sample_rate, 0, nullptr);
  m_resampler.reset(resampler);
  if (error < 0 || swr_init(resampler) < 0) {
    Log(kErr, "mux: no sample conversion for %s\n", codec->name);
    return false;
  }

  // Both frames are made once; every block of the file passes through them.
  m_input.reset(av_frame_alloc());
  m_frame.reset(av_frame_alloc());
  if (!m_input || !m_frame) return false;
  m_input->format = encoding.rawFormat;
  m_input->sample_rate = e->sample_rate;
  m_input->nb_samples = m_frameSize;
  av_channel_layout_copy(&m_input->ch_layout, &e->ch_layout);
  m_frame->format = e->sample_fmt;
  m_frame->sample_rate = e->sample_rate;
  m_frame->nb_samples = m_frameSize;
  av_channel_layout_copy(&m_frame->ch_layout, &e->ch_layout);
  if (av_frame_get_buffer(m_input.get(), 0) < 0 || av_frame_get_buffer(m_frame.get(), 0) < 0)
    return false;

  m_fd = job.audioFd;
  m_rawFrameBytes = av_get_bytes_per_sample(encoding.rawFormat) * job.audioChannels;
  m_framesTotal = job.audioFrames;
  Log(kMsg, "mux: audio %s, %d Hz, %d channels, %lld frames, %lld bit/s\n", codec->name,
      job.audioRate, job.audioChannels, static_cast<long long>(m_framesTotal),
      static_cast<long long>(e->bit_rate));
  return true;
}

// Reads up to frames sample frames into the input frame; the count read.
int64_t AudioSource::ReadRaw(int64_t frames) {
  auto* p = m_input->data[0];
  size_t want = static_cast<size_t>(frames) * m_rawFrameBytes;
  size_t got = 0;
  while (got < want) {
    const off_t at = static_cast<off_t>(m_framesRead * m_rawFrameBytes + got);
    const ssize_t n = pread(m_fd, p + got, want - got, at);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      Log(kErr, "mux: reading the raw audio failed: %s\n", strerror(errno));
      return -1;
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  return static_cast<int64_t>(got / m_rawFrameBytes);
}

bool AudioSource::SendNextFrame() {
  const int64_t wanted = std::min<int64_t>(m_frameSize, m_framesTotal - m_framesRead);
  int64_t got = 0;
  if (wanted > 0) {
    if (av_frame_make_writable(m_input.get()) < 0) return false;
    got = ReadRaw(wanted);
    if (got < 0) return false;
    if (got < wanted)
      Log(kWan, "mux: the raw audio ends after %lld of %lld frames\n",
          static_cast<long long>(m_framesRead + got), static_cast<long long>(m_framesTotal));
  }
  if (got == 0) {
    m_framesTotal = m_framesRead;
    m_flushed = true;
    return avcodec_send_frame(m_encoder.get(), nullptr) >= 0;
  }
  // An encoder without a short last frame gets it padded with silence.
  int samples = static_cast<int>(got);
  const bool padded =
      samples < m_frameSize && !(m_encoder->codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME);
  if (padded) {
    const int bytes = m_rawFrameBytes * (m_frameSize - samples);
    std::memset(m_input->data[0] + m_rawFrameBytes * samples, 0, static_cast<size_t>(bytes));
    samples = m_frameSize;
  }
  if (av_frame_make_writable(m_frame.get()) < 0) return false;
  const uint8_t* in[1] = {m_input->data[0]};
  if (swr_convert(m_resampler.get(), m_frame->data, samples, in, samples) != samples) return false;
  m_frame->nb_samples = samples;
  m_frame->pts = m_framesRead;
  m_framesRead += got;
  const int error = avcodec_send_frame(m_encoder.get(), m_frame.get());
  if (error < 0) Log(kErr, "mux: audio encoding failed: %s\n", ErrorText(error));
  return error >= 0;
}

int AudioSource::Next(AVPacket* packet) {
  for (;;) {
    const int error = avcodec_receive_packet(m_encoder.get(), packet);
    if (error >= 0) return kPacket;
    if (error == AVERROR_EOF) return kEnd;
    if (error != AVERROR(EAGAIN)) {
      Log(kErr, "mux: audio encoding failed: %s\n", ErrorText(error));
      return kFailed;
    }
    if (m_flushed) return kEnd;
    if (!SendNextFrame()) return kFailed;
  }
}

}  // namespace mux
