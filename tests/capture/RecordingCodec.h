// An encoder double that keeps copies of the frames it is handed, and the
// fixture of the capture tests that records through it a scene of their own.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "capture/CaptureVideoStream.h"
#include "core/Globals.h"
#include "encode/VideoCodec.h"
#include "orvanta/orvanta.h"
#include "session/ScreenCapture.h"
#include "support/Engine.h"
#include "support/Scene.h"

namespace {

struct Frame {
  int64_t time;
  BOOL key;
  BOOL unchanged;
  int32_t stride;
  std::vector<uint32_t> pixels;
};

// What the encoder double was handed; it outlives the session, which
// deletes its encoder at the stop.
struct Recorded {
  size_t Count() {
    std::lock_guard<std::mutex> lock(mutex);
    return frames.size();
  }

  std::mutex mutex;
  std::vector<Frame> frames;
  int32_t width = 0, height = 0;
  int finishes = 0;
  size_t framesAtFinish = 0;
  std::thread::id writeThread, finishThread;
};

Recorded* g_codec = nullptr;

struct RecordingCodec : public CVideoCodec {
  RecordingCodec(CWriterStatistics* s, CFrameRateControl* r, Recorded* out)
      : CVideoCodec(s, r), m_out(out) {}
  HRESULT Initialize(int32_t, int32_t w, int32_t h, int32_t, int32_t, const wchar_t*) override {
    m_out->width = w;
    m_out->height = h;
    return S_OK;
  }
  int32_t WriteFrame(const uint8_t* frame, int32_t stride, int64_t time, BOOL key,
                     BOOL unchanged) override {
    std::lock_guard<std::mutex> lock(m_out->mutex);
    const auto* pixels = reinterpret_cast<const uint32_t*>(frame);
    const size_t count = size_t(stride / 4) * ((m_out->height + 63) & ~63);
    m_out->frames.push_back({time, key, unchanged, stride, {pixels, pixels + count}});
    m_out->writeThread = std::this_thread::get_id();
    return unchanged ? 1 : 0;
  }
  void Finish() override {
    std::lock_guard<std::mutex> lock(m_out->mutex);
    ++m_out->finishes;
    m_out->framesAtFinish = m_out->frames.size();
    m_out->finishThread = std::this_thread::get_id();
  }
  Recorded* m_out;
};

CVideoCodec* MakeCodec(int32_t, CWriterStatistics* s, CFrameRateControl* r) {
  return new RecordingCodec(s, r, g_codec);
}

[[maybe_unused]] uint32_t Pixel(const Frame& f, int x, int y) {
  return f.pixels[static_cast<size_t>(y) * (f.stride / 4) + x] & 0xFFFFFF;
}

constexpr uint32_t kRed = 0xFF0000, kBlue = 0x0000FF, kGreen = 0x00FF00;

[[maybe_unused]] void SleepMs(int ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// H.264 at 10 frames a second of a blue screen, a key frame every second
// instead of every five.
class CaptureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CScreenCapture::s_codecFactoryForTesting = MakeCodec;
    g_codec = &recorded;
    ASSERT_TRUE(scene.Ok());
    scene.Fill(0, 0, scene.Width(), scene.Height(), kBlue);
    scene.Sync();
    video.bStream = 1;
    video.CodecType = CodecType_H264;
    video.FrameRate = 10;
    m_productSpacing = CCaptureVideoStream::s_nKeyFrameSpacing.exchange(kKeySpacing);
  }
  void TearDown() override {
    // A test that stopped at a failed assertion leaves its recorder running,
    // which would refuse the next test's.
    if (m_recorder && g_bRunning.load()) m_recorder->Destroy();
    CScreenCapture::s_codecFactoryForTesting = nullptr;
    CCaptureVideoStream::s_nKeyFrameSpacing = m_productSpacing;
    FreeCapturedFile(1);
  }
  CScreenRecoderObject* Record(BOOL showBox = 0) {
    HRESULT hr;
    m_recorder =
        ovVideoRecord(0, folder.WidePath().c_str(), &video, AudioOpt{}, &mouse, showBox, &hr);
    return m_recorder;
  }

  static constexpr int64_t kKeySpacing = 10000000;  // 100-ns units
  Recorded recorded;
  ovtest::Scene scene;
  ovtest::ScratchFolder folder{"ovcapture"};
  VideoOpt video{};
  MouseOpt mouse{};
  int64_t m_productSpacing = 0;
  CScreenRecoderObject* m_recorder = nullptr;  // the last one Record made
};

}  // namespace
