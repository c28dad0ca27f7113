#include "Assembler.h"

#include <memory>

#include "AudioSource.h"
#include "Containers.h"
#include "MuxLog.h"
#include "OutputFile.h"
#include "VideoSource.h"

namespace mux {

namespace {

// One input of the interleaving: the packet that waits to be written.
struct Lane {
  PacketPtr packet{av_packet_alloc()};
  bool waiting = false;
  bool ended = false;
};

class Assembly {
 public:
  explicit Assembly(const MuxJob& job) : m_job(job) {}
  bool Run();

 private:
  bool OpenStreams();
  bool Fill(Lane* lane, int result);
  void ReportProgress();

  const MuxJob& m_job;
  OutputFile m_output;
  std::unique_ptr<VideoSource> m_video;
  std::unique_ptr<AudioSource> m_audio;
  int m_videoStream = -1;
  int m_audioStream = -1;
};

bool Assembly::OpenStreams() {
  const Container& container = ContainerOf(m_job.container);
  if (!m_output.Open(container, m_job.outputPath)) return false;
  if (m_job.video) {
    m_video = OpenVideoSource(m_job, m_output);
    if (!m_video) return false;
    // AVI counts frames, not time: its clock is the nominal frame rate, and
    // the muxer fills the gaps of a variable rate.
    const AVRational base =
        m_job.container == ov::kMuxAvi ? av_inv_q(m_video->FrameRate()) : m_video->TimeBase();
    m_videoStream = m_output.AddStream(m_video->Parameters(), base, m_video->FrameRate());
    if (m_videoStream < 0) return false;
  }
  if (m_job.audio && m_job.audioFrames == 0) {
    if (!m_video) {
      Log(kErr, "mux: no audio to write\n");
      return false;
    }
    Log(kWan, "mux: the raw audio is empty; the file gets no audio\n");
  } else if (m_job.audio) {
    m_audio = std::make_unique<AudioSource>();
    if (!m_audio->Open(m_job, m_output.NeedsGlobalHeader())) return false;
    if (!m_output.CanCarry(m_audio->Encoder()->codec_id)) {
      Log(kErr, "mux: %s takes no %s audio\n", container.name, m_audio->Encoder()->codec->name);
      return false;
    }
    AVCodecParameters* parameters = avcodec_parameters_alloc();
    const bool made =
        parameters && avcodec_parameters_from_context(parameters, m_audio->Encoder()) >= 0;
    if (made) m_audioStream = m_output.AddStream(parameters, m_audio->TimeBase(), {0, 1});
    avcodec_parameters_free(&parameters);
    if (m_audioStream < 0) return false;
  }
  return m_output.Begin();
}

bool Assembly::Fill(Lane* lane, int result) {
  if (result == kFailed) return false;
  lane->waiting = result == kPacket;
  lane->ended = result == kEnd;
  return true;
}

void Assembly::ReportProgress() {
  int32_t progress;
  if (m_video) {
    progress = m_video->FramesDone();
  } else {
    const int64_t total = m_audio->FramesTotal();
    progress = total > 0 ? static_cast<int32_t>(m_audio->FramesRead() * 100 / total) : 0;
  }
  ov::MuxProgress(m_job.record).store(progress, std::memory_order_relaxed);
}

bool Assembly::Run() {
  if (!OpenStreams()) return false;
  Lane video, audio;
  video.ended = !m_video;
  audio.ended = !m_audio;
  if (!video.packet || !audio.packet) return false;
  for (;;) {
    if (!video.waiting && !video.ended && !Fill(&video, m_video->Next(video.packet.get())))
      return false;
    if (!audio.waiting && !audio.ended && !Fill(&audio, m_audio->Next(audio.packet.get())))
      return false;
    if (!video.waiting && !audio.waiting) break;
    // The earlier packet goes first, so that the file interleaves by time.
    const bool takeVideo =
        video.waiting &&
        (!audio.waiting || av_compare_ts(video.packet->dts, m_video->TimeBase(), audio.packet->dts,
                                         m_audio->TimeBase()) <= 0);
    Lane& lane = takeVideo ? video : audio;
    const bool written =
        takeVideo ? m_output.Write(lane.packet.get(), m_videoStream, m_video->TimeBase())
                  : m_output.Write(lane.packet.get(), m_audioStream, m_audio->TimeBase());
    av_packet_unref(lane.packet.get());
    lane.waiting = false;
    if (!written) return false;
    ReportProgress();
  }
  return m_output.Finish();
}

}  // namespace

bool Assemble(const MuxJob& job) {
  Log(kMsg, "mux: %s -> %s\n", ContainerOf(job.container).name, job.outputPath.c_str());
  return Assembly(job).Run();
}

}  // namespace mux
