// BGR32 to NV12 at 1920 x 1080: the exported routine on each of its paths
// against libswscale on the same input, and the ratio of the two at the end.
// Then the conversion every encoded frame goes through (video-range BT.709
// I420, as the encoder libraries call it) on each path, against libswscale
// set up as the encoder used it before (BT.709, point-sampled chroma).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>

extern "C" {
#include <libswscale/swscale.h>
}

#include "pixels/PixelDispatch.h"
#include "pixels/Pixels.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

struct FreeDeleter {
  void operator()(uint8_t* p) const { std::free(p); }
};
using Buffer = std::unique_ptr<uint8_t, FreeDeleter>;

Buffer Allocate(size_t size) {
  return Buffer(static_cast<uint8_t*>(std::aligned_alloc(64, (size + 63) / 64 * 64)));
}

// One frame for every benchmark: noise, so no path can profit from runs of
// equal pixels.
const uint8_t* Frame() {
  static Buffer frame = [] {
    Buffer b = Allocate(size_t{kWidth} * kHeight * 4);
    std::mt19937 rng(1);
    for (size_t i = 0; i < size_t{kWidth} * kHeight * 4; ++i) b.get()[i] = uint8_t(rng());
    return b;
  }();
  return frame.get();
}

void Ours(benchmark::State& state, int32_t level) {
  if (ov::SetPixelCpuLevel(level) != level) {
    state.SkipWithError("path not supported on this processor");
    return;
  }
  Buffer nv12 = Allocate(size_t{kWidth} * kHeight * 3 / 2);
  Buffer scratch = Allocate(size_t{kWidth} * kHeight * 3 / 2);
  const uint8_t* src = Frame();
  for (auto _ : state) {
    ImageConvert_BGR32_to_NV12(nv12.get(), kWidth, src, kWidth * 4, kWidth, kHeight, scratch.get());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
  ov::SetPixelCpuLevel(ov::DetectPixelCpuLevel());
}
BENCHMARK_CAPTURE(Ours, plain, 0)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Ours, sse2, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Ours, avx2, 7)->Unit(benchmark::kMicrosecond);

void Swscale(benchmark::State& state, int flags) {
  SwsContext* sws = sws_getContext(kWidth, kHeight, AV_PIX_FMT_BGRA, kWidth, kHeight,
                                   AV_PIX_FMT_NV12, flags, nullptr, nullptr, nullptr);
  if (!sws) {
    state.SkipWithError("sws_getContext failed");
    return;
  }
  Buffer nv12 = Allocate(size_t{kWidth} * kHeight * 3 / 2);
  const uint8_t* const src[4] = {Frame(), nullptr, nullptr, nullptr};
  const int srcStride[4] = {kWidth * 4, 0, 0, 0};
  uint8_t* const dst[4] = {nv12.get(), nv12.get() + size_t{kWidth} * kHeight, nullptr, nullptr};
  const int dstStride[4] = {kWidth, kWidth, 0, 0};
  for (auto _ : state) {
    sws_scale(sws, src, srcStride, 0, kHeight, dst, dstStride);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
  sws_freeContext(sws);
}
BENCHMARK_CAPTURE(Swscale, point, SWS_POINT)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Swscale, fast_bilinear, SWS_FAST_BILINEAR)->Unit(benchmark::kMicrosecond);

void EncoderInput(benchmark::State& state, int32_t level) {
  if (ov::SetPixelCpuLevel(level) != level) {
    state.SkipWithError("path not supported on this processor");
    return;
  }
  const auto convert = ov::PixelKernelsForLevel(level).bgr32ToVideoYuv;
  Buffer i420 = Allocate(size_t{kWidth} * kHeight * 3 / 2);
  uint8_t* u = i420.get() + size_t{kWidth} * kHeight;
  uint8_t* v = u + size_t{kWidth} * kHeight / 4;
  for (auto _ : state) {
    convert(i420.get(), kWidth, u, v, kWidth / 2, 1, Frame(), kWidth * 4, kWidth, kHeight);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
  ov::SetPixelCpuLevel(ov::DetectPixelCpuLevel());
}
BENCHMARK_CAPTURE(EncoderInput, plain, 0)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(EncoderInput, sse2, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(EncoderInput, avx2, 7)->Unit(benchmark::kMicrosecond);

void EncoderInputSwscale(benchmark::State& state) {
  SwsContext* sws = sws_getContext(kWidth, kHeight, AV_PIX_FMT_BGR0, kWidth, kHeight,
                                   AV_PIX_FMT_YUV420P, SWS_POINT, nullptr, nullptr, nullptr);
  if (!sws) {
    state.SkipWithError("sws_getContext failed");
    return;
  }
  const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
  sws_setColorspaceDetails(sws, bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);
  Buffer i420 = Allocate(size_t{kWidth} * kHeight * 3 / 2);
  const uint8_t* const src[4] = {Frame(), nullptr, nullptr, nullptr};
  const int srcStride[4] = {kWidth * 4, 0, 0, 0};
  uint8_t* const dst[4] = {i420.get(), i420.get() + size_t{kWidth} * kHeight,
                           i420.get() + size_t{kWidth} * kHeight * 5 / 4, nullptr};
  const int dstStride[4] = {kWidth, kWidth / 2, kWidth / 2, 0};
  for (auto _ : state) {
    sws_scale(sws, src, srcStride, 0, kHeight, dst, dstStride);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
  sws_freeContext(sws);
}
BENCHMARK(EncoderInputSwscale)->Unit(benchmark::kMicrosecond);

// Keeps the real time per frame of every benchmark for the ratio: the median
// when the runs are repeated, the run itself otherwise.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !median)) continue;
      const std::string name = run.run_name.str();
      if (median || !m_seconds.count(name)) {
        m_seconds[name] =
            run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatio() const {
    // The path the dispatch picks on this processor.
    const int32_t level = ov::DetectPixelCpuLevel();
    const std::string ours = level >= 7 ? "Ours/avx2" : level >= 1 ? "Ours/sse2" : "Ours/plain";
    double fastestSws = 0;
    std::string fastestName;
    for (const auto& [name, seconds] : m_seconds) {
      if (name.rfind("Swscale/", 0) == 0 && (fastestSws == 0 || seconds < fastestSws)) {
        fastestSws = seconds;
        fastestName = name;
      }
    }
    const auto it = m_seconds.find(ours);
    if (it == m_seconds.end() || fastestSws == 0) {
      std::printf("ratio: not measured (run both %s and Swscale)\n", ours.c_str());
      return;
    }
    std::printf("\n%s: %.3f ms per frame; fastest libswscale (%s): %.3f ms\n", ours.c_str(),
                it->second * 1e3, fastestName.c_str(), fastestSws * 1e3);
    std::printf("ratio swscale / ours: %.2f\n", fastestSws / it->second);
  }

 private:
  std::map<std::string, double> m_seconds;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  ov::InitializePixelDispatch();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatio();
  benchmark::Shutdown();
  return 0;
}
