// Time to assemble the final file of a 60 s 1080p H.264 recording with
// stereo sound: FFMux from the call to OnComplete, which is what the user
// waits for after pressing stop. The temp set is made first by the real
// encoder library and wave writer. Prints one line per run and the median.
//
// Usage: mux_bench [runs] [busy]   (from the build's bin folder, beside mux)
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio/WaveEncoder.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "encode/VendorTable.h"
#include "orvanta/orvanta.h"
#include "platform/Files.h"
#include "platform/LogFile.h"
#include "support/Doubles.h"

namespace {

constexpr int kWidth = 1920, kHeight = 1080, kFps = 30, kSeconds = 60, kRate = 48000;

bool g_busy = false;

// A desktop-like picture: a still background with a window whose content
// scrolls, so that every frame differs a little. Busy: the window plays a
// moving picture full of detail, which costs the encoder many more bytes.
void DrawFrame(int frame, std::vector<uint32_t>* pixels) {
  for (int y = 0; y < kHeight; ++y) {
    uint32_t* row = pixels->data() + static_cast<size_t>(y) * kWidth;
    const bool inWindow = y >= 200 && y < 800;
    for (int x = 0; x < kWidth; ++x) {
      if (inWindow && x >= 400 && x < 1400) {
        if (g_busy) {
          const uint32_t v = static_cast<uint32_t>((x + frame * 3) * (y - frame * 2)) >> 5;
          row[x] = (v & 0xFF) | ((v * 7 & 0xFF) << 8) | ((v * 13 & 0xFF) << 16);
        } else {
          const int line = (y + frame * 4) / 18;
          row[x] = (line % 3 != 0 && (x / 9 + line) % 7 != 0) ? 0xF8F8F8 : 0x303030;
        }
      } else {
        row[x] = 0x1E4060 + static_cast<uint32_t>(y / 8);
      }
    }
  }
}

bool MakeVideo(const std::wstring& path) {
  ovtest::NullStatistics reports;
  std::unique_ptr<CVideoCodec> encoder(ov::CreateLibraryVideoCodec(1, &reports, &reports));
  if (!encoder || encoder->Initialize(1, kWidth, kHeight, kFps, 3, path.c_str()) != S_OK)
    return false;
  std::vector<uint32_t> pixels(static_cast<size_t>(kWidth) * kHeight);
  for (int i = 0; i < kFps * kSeconds; ++i) {
    DrawFrame(i, &pixels);
    const int64_t time = static_cast<int64_t>(i) * 10000000 / kFps;
    encoder->WriteFrame(reinterpret_cast<const uint8_t*>(pixels.data()), kWidth * 4, time,
                        i % (kFps * 5) == 0, 0);
  }
  encoder->Finish();
  return true;
}

// Float stereo as the loopback device delivers it: a chord with noise.
bool MakeWave(const std::wstring& path) {
  WAVEFORMATEXTENSIBLE format{};
  format.Format = {WAVE_FORMAT_EXTENSIBLE, 2, kRate, kRate * 8, 8, 32, 22};
  format.Samples.wValidBitsPerSample = 32;
  format.dwChannelMask = 3;
  format.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
  CWaveEncoder writer;
  if (writer.Initialize(path.c_str(), &format) != S_OK) return false;
  std::vector<float> block(kRate / 10 * 2);
  uint32_t noise = 1;
  for (int n = 0; n < kRate * kSeconds; n += kRate / 10) {
    for (size_t i = 0; i < block.size() / 2; ++i) {
      const double t = static_cast<double>(n + static_cast<int>(i)) / kRate;
      noise = noise * 1664525u + 1013904223u;
      const double v = 0.2 * std::sin(2 * M_PI * 220 * t) + 0.15 * std::sin(2 * M_PI * 331 * t) +
                       0.05 * (static_cast<double>(noise >> 8) / (1 << 24) - 0.5);
      block[2 * i] = static_cast<float>(v);
      block[2 * i + 1] = static_cast<float>(v * 0.8);
    }
    writer.Write(block.data(), static_cast<uint32_t>(block.size() * sizeof(float)));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
  g_busy = argc > 2 && std::strcmp(argv[2], "busy") == 0;
  const std::filesystem::path work =
      std::filesystem::temp_directory_path() / ("ovmuxbench." + std::to_string(getpid()));
  std::filesystem::create_directories(work / "docs");
  setenv("XDG_DOCUMENTS_DIR", (work / "docs").c_str(), 1);
  ov::SetChildStdHandle(ov::OpenLogFile());
  ov::ProbeVideoEncoders();

  CapturedFile record{};
  record.bScreenStream = 1;
  record.CodecType = 1;
  std::wcsncpy(record.szScreenCaptureFile, ov::FromUtf8(work / "ScreenCapture.h264").c_str(),
               OV_MAX_PATH - 1);
  record.bWaveOutStream = record.bUseWaveOut = 1;
  record.lWaveOutVolume = 100;
  std::wcsncpy(record.szWaveOutFile, ov::FromUtf8(work / "Speaker.wav").c_str(), OV_MAX_PATH - 1);
  std::printf("making %d s of %dx%d H.264 at %d fps and float stereo at %d Hz...\n", kSeconds,
              kWidth, kHeight, kFps, kRate);
  if (!MakeVideo(record.szScreenCaptureFile) || !MakeWave(record.szWaveOutFile)) {
    std::fprintf(stderr, "the temp set could not be made\n");
    return 1;
  }
  std::printf("temp video %.1f MB\n",
              std::filesystem::file_size(work / "ScreenCapture.h264") / 1e6);

  std::vector<double> seconds;
  for (int run = 0; run < runs; ++run) {
    g_Recording = &record;
    ovtest::MuxWaiter waiter;
    const std::string out = (work / ("out" + std::to_string(run) + ".mp4")).string();
    const auto start = std::chrono::steady_clock::now();
    if (FFMux(0, 0, ov::FromUtf8(out).c_str(), 0, &waiter) != S_OK || !waiter.Wait(600) ||
        waiter.Result() != S_OK) {
      std::fprintf(stderr, "mux failed; see %s/Log Files/Orvanta0.log\n", (work / "docs").c_str());
      return 1;
    }
    seconds.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    std::printf("run %d: %.2f s (%s, %.1f MB)\n", run + 1, seconds.back(), out.c_str(),
                std::filesystem::file_size(out) / 1e6);
  }
  g_Recording = nullptr;
  std::sort(seconds.begin(), seconds.end());
  std::printf("median %.2f s for %d s of 1080p with stereo\n", seconds[seconds.size() / 2],
              kSeconds);
  std::filesystem::remove_all(work);
  return 0;
}
