// Composing a 1920 x 1080 overlay frame: the picture (its dimmed form
// outside a rectangle, made once per picture) under a premultiplied overlay
// layer, as every presented frame of a selection or still capture is made.
// Ours, plain and SSE2, against cairo (pixman) laying the same overlay over
// a copy of the picture, and the ratio of the two at the end.
#include <benchmark/benchmark.h>
#include <cairo.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "pixels/OverlayKernels.h"

namespace {

constexpr int kWidth = 1920, kHeight = 1080;

// Noise for the picture; an overlay that is clear but for a box and a
// translucent band, as a selection draws it.
struct Frames {
  std::vector<uint32_t> picture, overlay, out;
  Frames() : picture(kWidth * kHeight), overlay(kWidth * kHeight), out(kWidth * kHeight) {
    std::mt19937 rng(1);
    for (uint32_t& p : picture) p = rng() | 0xFF000000u;
    for (int y = 300; y < 700; ++y)
      for (int x = 500; x < 1400; ++x)
        overlay[y * kWidth + x] = (y < 310 || y >= 690) ? 0xFFFFFFFFu : 0x40202020u;
  }
};

Frames& Shared() {
  static Frames frames;
  return frames;
}

void Ours(benchmark::State& state, const ov::pixels::OverlayKernels& kernels) {
  Frames& f = Shared();
  std::vector<uint32_t> dimmed(f.picture.size());
  kernels.dimRow(dimmed.data(), f.picture.data(), 0, kWidth * kHeight);
  for (auto _ : state) {
    for (int y = 0; y < kHeight; ++y) {
      const size_t at = size_t(y) * kWidth;
      uint32_t* out = &f.out[at];
      const uint32_t *p = &f.picture[at], *m = &dimmed[at], *o = &f.overlay[at];
      const bool rowIn = y >= 300 && y < 700;
      kernels.overRow(out, m, o, 0, rowIn ? 500 : kWidth);
      if (!rowIn) continue;
      kernels.overRow(out, p, o, 500, 1400);
      kernels.overRow(out, m, o, 1400, kWidth);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}
BENCHMARK_CAPTURE(Ours, plain, ov::pixels::PlainOverlayKernels())->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Ours, sse2, ov::pixels::Sse2OverlayKernels())->Unit(benchmark::kMicrosecond);

void Cairo(benchmark::State& state) {
  Frames& f = Shared();
  auto* out = reinterpret_cast<unsigned char*>(f.out.data());
  cairo_surface_t* target =
      cairo_image_surface_create_for_data(out, CAIRO_FORMAT_RGB24, kWidth, kHeight, kWidth * 4);
  cairo_surface_t* overlay =
      cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(f.overlay.data()),
                                          CAIRO_FORMAT_ARGB32, kWidth, kHeight, kWidth * 4);
  cairo_t* cr = cairo_create(target);
  for (auto _ : state) {
    cairo_surface_flush(target);
    memcpy(out, f.picture.data(), f.picture.size() * 4);
    cairo_surface_mark_dirty(target);
    cairo_set_source_surface(cr, overlay, 0, 0);
    cairo_paint(cr);
    cairo_surface_flush(target);
    benchmark::ClobberMemory();
  }
  cairo_destroy(cr);
  cairo_surface_destroy(overlay);
  cairo_surface_destroy(target);
  state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}
BENCHMARK(Cairo)->Unit(benchmark::kMicrosecond);

// Prints ours over cairo's time per frame for each of our paths.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs)
      if (!run.error_occurred) m_times[run.benchmark_name()] = run.GetAdjustedRealTime();
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    const double peer = m_times["Cairo"];
    for (const auto& [name, time] : m_times)
      if (name != "Cairo" && peer > 0) printf("%s / cairo: %.2f\n", name.c_str(), time / peer);
  }

 private:
  std::map<std::string, double> m_times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
