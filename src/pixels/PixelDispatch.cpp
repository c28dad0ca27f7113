#include "pixels/PixelDispatch.h"

#include <algorithm>
#include <cstdlib>

std::atomic<int32_t> g_nCpuLevel{0};

namespace ov {
namespace {

std::atomic<const pixels::PixelKernels*> g_pKernels{nullptr};

const pixels::PixelKernels* KernelsForLevel(int32_t level) {
#if defined(__x86_64__) || defined(__i386__)
  if (level >= 7) return &pixels::Avx2Kernels();
  if (level >= 1) return &pixels::Sse2Kernels();
#else
  (void)level;
#endif
  return &pixels::PlainKernels();
}

int32_t SupportedLevel() {
#if defined(__x86_64__) || defined(__i386__)
  // libgcc's feature bits include the system's consent (XGETBV) for AVX state.
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) return 7;
  if (__builtin_cpu_supports("avx")) return 6;
  if (__builtin_cpu_supports("sse4.2")) return 5;
  if (__builtin_cpu_supports("sse4.1")) return 4;
  if (__builtin_cpu_supports("ssse3")) return 3;
  if (__builtin_cpu_supports("sse3")) return 2;
  if (__builtin_cpu_supports("sse2")) return 1;
#endif
  return 0;
}

}  // namespace

int32_t DetectPixelCpuLevel() {
  const int32_t level = SupportedLevel();
  const char* cap = std::getenv("ORVANTA_CPU_LEVEL");
  if (!cap || *cap < '0' || *cap > '9') return level;
  return std::min(level, static_cast<int32_t>(std::atoi(cap)));
}

const pixels::PixelKernels& PixelKernelsForLevel(int32_t level) {
  return *KernelsForLevel(std::clamp(level, 0, DetectPixelCpuLevel()));
}

void InitializePixelDispatch() {
  if (g_pKernels.load(std::memory_order_acquire)) return;
  const int32_t level = DetectPixelCpuLevel();
  const pixels::PixelKernels* expected = nullptr;
  if (g_pKernels.compare_exchange_strong(expected, KernelsForLevel(level),
                                         std::memory_order_acq_rel)) {
    g_nCpuLevel.store(level);
  }
}

int32_t SetPixelCpuLevel(int32_t level) {
  level = std::clamp(level, 0, DetectPixelCpuLevel());
  g_pKernels.store(KernelsForLevel(level), std::memory_order_release);
  g_nCpuLevel.store(level);
  return level;
}

const pixels::PixelKernels& ActivePixelKernels() {
  const pixels::PixelKernels* kernels = g_pKernels.load(std::memory_order_acquire);
  if (!kernels) {
    InitializePixelDispatch();
    kernels = g_pKernels.load(std::memory_order_acquire);
  }
  return *kernels;
}

}  // namespace ov
