#include "encode/libs/GifAssembly.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "encode/libs/EncoderLog.h"
#include "encode/libs/GifTempVideo.h"
#include "platform/Files.h"
#include "platform/Text.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace ov::enc::gif {

namespace {

// GIF delays are counted in hundredths of a second, and players stretch
// delays below two hundredths; frames closer than that give way to the
// newer one.
constexpr AVRational kGifTime = {1, 100};
constexpr int64_t kMinDelay = 2;
constexpr wchar_t kPartPrefix[] = L".ovgif-";

int64_t Centiseconds(int64_t ticks) { return (ticks * 100 + kIndexClock / 2) / kIndexClock; }

// A frame of the temp video and when the GIF shows it.
struct Shown {
  size_t frame;
  int64_t at;  // centiseconds from the start of the GIF
};

struct GraphDeleter {
  void operator()(AVFilterGraph* g) const { avfilter_graph_free(&g); }
};
using Graph = std::unique_ptr<AVFilterGraph, GraphDeleter>;

// The palette filters run on one thread whatever the graph allows; the one
// other filter, the conversion to their pixel format, is too cheap to be
// worth threads of its own.
Graph NewGraph() {
  Graph graph(avfilter_graph_alloc());
  if (graph) graph->nb_threads = 1;
  return graph;
}

AVFilterContext* AddFilter(AVFilterGraph* graph, const char* filter, const char* name,
                           const char* args) {
  AVFilterContext* context = nullptr;
  const AVFilter* f = avfilter_get_by_name(filter);
  if (!f || avfilter_graph_create_filter(&context, f, name, args, nullptr, graph) < 0) {
    Log(kErr, "No filter %s(%s)\n", filter, args ? args : "");
    return nullptr;
  }
  return context;
}

AVFilterContext* AddSource(AVFilterGraph* graph, const char* name, int width, int height,
                           AVPixelFormat format) {
  char args[128];
  std::snprintf(args, sizeof args, "video_size=%dx%d:pix_fmt=%d:time_base=1/100:pixel_aspect=1/1",
                width, height, static_cast<int>(format));
  return AddFilter(graph, "buffer", name, args);
}

class GifAssembly {
 public:
  explicit GifAssembly(GifJob job) : m_job(std::move(job)) {}
  ~GifAssembly() {
    if (m_mux) {
      avio_closep(&m_mux->pb);
      avformat_free_context(m_mux);
    }
    avcodec_free_context(&m_encoder);
    av_frame_free(&m_palette);
    av_frame_free(&m_out);
    av_packet_free(&m_packet);
  }

  HRESULT Run();

 private:
  bool Plan();
  HRESULT FindPalette();
  HRESULT OpenOutput();
  HRESULT WriteFrames();
  int EncodeFiltered(AVFilterContext* sink);
  int Encode(AVFrame* picture);
  bool Report(int percent);

  GifJob m_job;
  TempVideoReader m_in;
  std::vector<Shown> m_shown;
  int64_t m_length = 0;  // centiseconds
  std::wstring m_part;
  AVFrame* m_palette = nullptr;
  AVFrame* m_out = nullptr;
  AVPacket* m_packet = nullptr;
  AVCodecContext* m_encoder = nullptr;
  AVFormatContext* m_mux = nullptr;
  int m_lastReport = -1;
};

// Which frames the trim keeps and when each is shown: the one on screen at
// the trim start opens the GIF, then every frame before the end.
bool GifAssembly::Plan() {
  const std::vector<FrameIndexEntry>& frames = m_in.Frames();
  int64_t start = TimeToTicks(m_job.trimStart);
  // A start past the end keeps the whole recording, as the other muxers do.
  if (start >= m_in.EndTicks()) start = 0;
  int64_t end = m_in.EndTicks();
  if (m_job.trimEnd > 0) end = std::min(end, TimeToTicks(m_job.trimEnd));
  if (m_job.limit > 0) end = std::min(end, start + TimeToTicks(m_job.limit));
  m_length = std::max<int64_t>(Centiseconds(end - start), kMinDelay);
  const size_t first = m_in.FrameAt(start);
  m_shown.push_back({first, 0});
  for (size_t i = first + 1; i < frames.size() && frames[i].time < end; ++i) {
    const int64_t at = Centiseconds(frames[i].time - start);
    if (at - m_shown.back().at < kMinDelay)
      m_shown.back().frame = i;
    else if (at <= m_length - kMinDelay)
      m_shown.push_back({i, at});
  }
  m_out = av_frame_alloc();
  m_palette = av_frame_alloc();
  m_packet = av_packet_alloc();
  return m_out && m_palette && m_packet;
}

bool GifAssembly::Report(int percent) {
  if (percent == m_lastReport) return true;
  m_lastReport = percent;
  return m_job.callback->OnProgress(percent) != 0;
}

HRESULT GifAssembly::Run() {
  if (!m_in.Open(m_job.tempVideo)) return E_FAIL;
  if (!Plan()) return E_OUTOFMEMORY;
  Log(kMsg, "GIF: %zu of %zu frames, %lld.%02llds\n", m_shown.size(), m_in.Frames().size(),
      static_cast<long long>(m_length / 100), static_cast<long long>(m_length % 100));
  HRESULT hr = FindPalette();
  if (SUCCEEDED(hr)) hr = OpenOutput();
  if (SUCCEEDED(hr)) hr = WriteFrames();
  if (m_mux) {
    if (int error = avio_closep(&m_mux->pb); error < 0 && SUCCEEDED(hr)) {
      Log(kErr, "Failed(%d) to close the GIF\n", error);
      hr = E_FAIL;
    }
  }
  if (m_part.empty()) return hr;
  if (SUCCEEDED(hr)) {
    if (int error = ReplaceFile(m_part, m_job.outFile)) {
      Log(kErr, "Failed(%d) to rename %ls to %ls\n", error, m_part.c_str(), m_job.outFile.c_str());
      hr = E_FAIL;
    }
  }
  if (FAILED(hr)) RemoveFile(m_part);
  return hr;
}

// First pass: the colours of every frame kept, into one palette.
HRESULT GifAssembly::FindPalette() {
  Graph graph = NewGraph();
  if (!graph) return E_OUTOFMEMORY;
  AVFilterContext* source = AddSource(graph.get(), "in", m_in.Width(), m_in.Height(), kTempPixels);
  AVFilterContext* palettegen =
      AddFilter(graph.get(), "palettegen", "palettegen", "max_colors=256:stats_mode=full");
  AVFilterContext* sink = AddFilter(graph.get(), "buffersink", "out", nullptr);
  if (!source || !palettegen || !sink || avfilter_link(source, 0, palettegen, 0) < 0 ||
      avfilter_link(palettegen, 0, sink, 0) < 0 || avfilter_graph_config(graph.get(), nullptr) < 0)
    return E_FAIL;
  for (size_t k = 0; k < m_shown.size(); ++k) {
    AVFrame* picture = m_in.Decode(m_shown[k].frame);
    if (!picture) return E_FAIL;
    picture->pts = m_shown[k].at;
    if (av_buffersrc_add_frame_flags(source, picture, AV_BUFFERSRC_FLAG_KEEP_REF) < 0)
      return E_FAIL;
    if (!Report(static_cast<int>(k * 50 / m_shown.size()))) return E_ABORT;
  }
  if (av_buffersrc_add_frame(source, nullptr) < 0 || av_buffersink_get_frame(sink, m_palette) < 0) {
    Log(kErr, "No palette for the GIF\n");
    return E_FAIL;
  }
  return S_OK;
}

HRESULT GifAssembly::OpenOutput() {
  if (int error = CreateUniqueFile(FolderOf(m_job.outFile), kPartPrefix, &m_part)) {
    Log(kErr, "Failed(%d) to create file beside:%ls\n", error, m_job.outFile.c_str());
    return E_FAIL;
  }
  const std::string part = ov::ToUtf8(m_part);
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_GIF);
  m_encoder = codec ? avcodec_alloc_context3(codec) : nullptr;
  if (!m_encoder) return E_FAIL;
  m_encoder->width = m_in.Width();
  m_encoder->height = m_in.Height();
  m_encoder->pix_fmt = AV_PIX_FMT_PAL8;
  m_encoder->time_base = kGifTime;
  int error = avcodec_open2(m_encoder, codec, nullptr);
  if (error >= 0) error = avformat_alloc_output_context2(&m_mux, nullptr, "gif", part.c_str());
  AVStream* stream = error >= 0 ? avformat_new_stream(m_mux, nullptr) : nullptr;
  if (!stream) {
    Log(kErr, "Failed(%d) to set up the GIF encoder\n", error);
    return E_FAIL;
  }
  stream->time_base = kGifTime;
  avcodec_parameters_from_context(stream->codecpar, m_encoder);
  if ((error = avio_open(&m_mux->pb, part.c_str(), AVIO_FLAG_WRITE)) < 0) {
    Log(kErr, "Failed(%d) to open file:%s\n", error, part.c_str());
    return E_FAIL;
  }
  // The last frame stands until the end of the trim.
  AVDictionary* options = nullptr;
  av_dict_set_int(&options, "final_delay", m_length - m_shown.back().at, 0);
  av_dict_set_int(&options, "loop", 0, 0);
  error = avformat_write_header(m_mux, &options);
  av_dict_free(&options);
  if (error < 0) {
    Log(kErr, "Failed(%d) to write the GIF header\n", error);
    return E_FAIL;
  }
  return S_OK;
}

// Second pass: each frame onto the palette, where it changed.
HRESULT GifAssembly::WriteFrames() {
  Graph graph = NewGraph();
  if (!graph) return E_OUTOFMEMORY;
  AVFilterContext* source = AddSource(graph.get(), "in", m_in.Width(), m_in.Height(), kTempPixels);
  AVFilterContext* palette = AddSource(graph.get(), "palette", m_palette->width, m_palette->height,
                                       static_cast<AVPixelFormat>(m_palette->format));
  AVFilterContext* paletteuse =
      AddFilter(graph.get(), "paletteuse", "paletteuse", "dither=sierra2_4a:diff_mode=rectangle");
  AVFilterContext* sink = AddFilter(graph.get(), "buffersink", "out", nullptr);
  if (!source || !palette || !paletteuse || !sink || avfilter_link(source, 0, paletteuse, 0) < 0 ||
      avfilter_link(palette, 0, paletteuse, 1) < 0 || avfilter_link(paletteuse, 0, sink, 0) < 0 ||
      avfilter_graph_config(graph.get(), nullptr) < 0)
    return E_FAIL;
  m_palette->pts = 0;
  if (av_buffersrc_add_frame(palette, m_palette) < 0 ||
      av_buffersrc_add_frame(palette, nullptr) < 0)
    return E_FAIL;
  for (size_t k = 0; k < m_shown.size(); ++k) {
    AVFrame* picture = m_in.Decode(m_shown[k].frame);
    if (!picture) return E_FAIL;
    picture->pts = m_shown[k].at;
    if (av_buffersrc_add_frame_flags(source, picture, AV_BUFFERSRC_FLAG_KEEP_REF) < 0 ||
        EncodeFiltered(sink) < 0)
      return E_FAIL;
    if (!Report(50 + static_cast<int>(k * 50 / m_shown.size()))) return E_ABORT;
  }
  if (av_buffersrc_add_frame(source, nullptr) < 0 || EncodeFiltered(sink) < 0 ||
      Encode(nullptr) < 0)
    return E_FAIL;
  if (int error = av_write_trailer(m_mux); error < 0) {
    Log(kErr, "Failed(%d) to finish the GIF\n", error);
    return E_FAIL;
  }
  Report(100);
  return S_OK;
}

int GifAssembly::EncodeFiltered(AVFilterContext* sink) {
  for (;;) {
    int error = av_buffersink_get_frame(sink, m_out);
    if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) return 0;
    if (error < 0) return error;
    error = Encode(m_out);
    av_frame_unref(m_out);
    if (error < 0) return error;
  }
}

int GifAssembly::Encode(AVFrame* picture) {
  int error = avcodec_send_frame(m_encoder, picture);
  while (error >= 0) {
    error = avcodec_receive_packet(m_encoder, m_packet);
    if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) return 0;
    if (error < 0) break;
    m_packet->stream_index = 0;
    av_packet_rescale_ts(m_packet, kGifTime, m_mux->streams[0]->time_base);
    error = av_write_frame(m_mux, m_packet);
    av_packet_unref(m_packet);
  }
  Log(kErr, "Failed(%d) to write a GIF frame\n", error);
  return error;
}

// The assemblies' threads, joined when the library goes away.
class Workers {
 public:
  ~Workers() { Join(); }

  bool Start(std::unique_ptr<GifAssembly> assembly, CMuxCallback* callback) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Reap(false);
    auto done = std::make_shared<std::atomic<bool>>(false);
    try {
      m_running.push_back({std::thread([assembly = std::move(assembly), callback, done]() mutable {
                             pthread_setname_np(pthread_self(), "GIFMux");
                             const HRESULT hr = assembly->Run();
                             assembly.reset();
                             callback->OnComplete(hr);
                             done->store(true);
                           }),
                           done});
    } catch (const std::system_error&) {
      Log(kErr, "Failed to start the GIF mux thread\n");
      return false;
    }
    return true;
  }

  void Join() {
    std::lock_guard<std::mutex> lock(m_mutex);
    Reap(true);
  }

 private:
  struct Running {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };

  void Reap(bool all) {
    for (auto it = m_running.begin(); it != m_running.end();) {
      if (all || it->done->load()) {
        it->thread.join();
        it = m_running.erase(it);
      } else {
        ++it;
      }
    }
  }

  std::mutex m_mutex;
  std::vector<Running> m_running;
};

Workers g_workers;

}  // namespace

HRESULT StartGifAssembly(GifJob job) {
  if (job.trimStart < 0 || job.trimEnd < 0 || job.limit < 0 ||
      (job.trimEnd > 0 && job.trimEnd <= job.trimStart)) {
    Log(kErr, "Error: GIF trim %lld->%lld, limit %lld\n", static_cast<long long>(job.trimStart),
        static_cast<long long>(job.trimEnd), static_cast<long long>(job.limit));
    return E_INVALIDARG;
  }
  RouteLibavLog();
  CMuxCallback* callback = job.callback;
  return g_workers.Start(std::make_unique<GifAssembly>(std::move(job)), callback) ? S_OK : E_FAIL;
}

void JoinGifAssemblies() { g_workers.Join(); }

}  // namespace ov::enc::gif
