// A GIF recording end to end: a still second, then a square moving over a
// flat ground below a band of more colours than a GIF palette holds,
// assembled with a trim. The GIF must be what a viewer opens, as long as the
// trim, true to the flat colours, and the still stretch one frame.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "orvanta/orvanta.h"
#include "platform/Text.h"
#include "support/Doubles.h"
#include "support/LogMark.h"
#include "support/Media.h"
#include "support/Scene.h"

// After the rest: Xlib's macros clash with their names.
#include <X11/Xlib.h>

namespace {

constexpr int kWidth = 320, kHeight = 240;
constexpr uint32_t kGround = 0x406080, kSquare = 0xF0C020;

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

bool Near(const uint8_t* rgb, uint32_t colour) {
  for (int c = 0; c < 3; ++c)
    if (std::abs(rgb[c] - static_cast<int>((colour >> (16 - 8 * c)) & 0xFF)) > 6) return false;
  return true;
}

// Pixels of the square colour in the lower half of an RGB frame, or -1 when
// the ground off the square's rows is not the ground colour.
int SquarePixels(const uint8_t* frame) {
  int square = 0;
  for (int y = 120; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const uint8_t* p = frame + (y * kWidth + x) * 3;
      if ((y < 135 || y >= 185) && !Near(p, kGround)) return -1;
      square += Near(p, kSquare);
    }
  }
  return square;
}

std::string DecodeToRgb(const std::string& file, const std::string& raw) {
  std::filesystem::remove(raw);
  ovtest::RunCapture("ffmpeg -nostdin -v error -i '" + file +
                     "' -vsync passthrough -enc_time_base 1:100 -f rawvideo -pix_fmt rgb24 '" +
                     raw + "'");
  return ovtest::ReadFile(raw);
}

// Played before assembly, a seek into the motion shows a frame of it. A
// snapshot may come before the seek's frame is shown, so it is asked again.
int PlaybackSquareAt(int seconds, const std::string& png) {
  Display* display = XOpenDisplay(nullptr);
  const Window window =
      XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, kWidth, kHeight, 0, 0, 0);
  XMapWindow(display, window);
  XSync(display, False);
  int square = -2;
  if (CVideoPlayerObject* player = PlayCapturedVideo(window, nullptr)) {
    player->BeginSeek();
    player->Seek(seconds);
    player->EndSeek();
    for (int i = 0; i < 50 && square <= 0; ++i) {
      std::filesystem::remove(png);
      player->SaveFrame(ov::FromUtf8(png).c_str());
      SleepMs(100);
      const std::string rgb = DecodeToRgb(png, png + ".rgb");
      if (rgb.size() == size_t{kWidth * kHeight * 3})
        square = SquarePixels(reinterpret_cast<const uint8_t*>(rgb.data()));
    }
    player->Destroy();
  }
  XCloseDisplay(display);
  return square;
}

TEST(GifRecordingTest, TrimmedGifProbesWithItsLengthAndKeepsFlatColours) {
  ovtest::ScratchFolder folder{"ovgif"};
  ovtest::Scene scene;
  for (int x = 0; x < kWidth; ++x)  // a band of 320 colours
    scene.Fill(x, 0, 1, 120, (x * 0x10305u) ^ (static_cast<uint32_t>(255 - x * 4 / 5) << 8));
  scene.Fill(0, 120, kWidth, 120, kGround);
  scene.Sync();
  VideoOpt video{};
  video.bStream = 1;
  video.rcScreen = {0, 0, kWidth, kHeight};
  video.CodecType = CodecType_GIF;
  video.FrameRate = 30;
  MouseOpt mouse{};
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder =
      ovVideoRecord(0, ov::FromUtf8(folder.Path()).c_str(), &video, AudioOpt{}, &mouse, 0, &hr);
  ASSERT_NE(recorder, nullptr) << std::hex << hr;
  recorder->Start();
  SleepMs(1000);
  std::atomic<bool> stop{false};
  std::thread moving([&] {
    for (int step = 0; !stop; ++step) {
      scene.Fill(0, 130, kWidth, 60, kGround);
      scene.Fill((step * 7) % (kWidth - 40), 140, 40, 40, kSquare);
      scene.Sync();
      SleepMs(20);
    }
  });
  SleepMs(3000);
  recorder->Destroy();
  stop = true;
  moving.join();

  CapturedFile* file = GetCapturedFile();
  ASSERT_NE(file, nullptr);
  file->nTrimStart = 5000000;  // 0.5 s to 3.5 s
  file->nTrimEnd = 35000000;
  EXPECT_GE(PlaybackSquareAt(2, folder.Path() + "/shown.png"), 40 * 40 * 9 / 10);

  const std::string out = folder.Path() + "/clip.gif";
  ovtest::LogMark log;
  ovtest::MuxWaiter waiter;
  ASSERT_EQ(GIFMux(ov::FromUtf8(out).c_str(), 0, &waiter), S_OK);
  ASSERT_TRUE(waiter.Wait(120));
  ASSERT_EQ(waiter.Result(), S_OK) << log.Text();
  FreeCapturedFile(1);

  EXPECT_EQ(ovtest::Probe(out, "-show_entries format=format_name"), "gif\n");
  EXPECT_NEAR(std::atof(ovtest::Probe(out, "-show_entries format=duration").c_str()), 3.0,
              1.0 / 30 + 0.01);
  // The still half second before the motion is the first frame alone.
  const std::string durations = ovtest::Probe(out, "-show_entries packet=duration_time");
  EXPECT_GE(std::atof(durations.c_str()), 0.3) << durations.substr(0, 40);

  const std::string pixels = DecodeToRgb(out, folder.Path() + "/clip.rgb");
  const size_t frameBytes = kWidth * kHeight * 3;
  ASSERT_GE(pixels.size(), frameBytes * 10);
  for (size_t f = 0; f + frameBytes <= pixels.size(); f += frameBytes) {
    const int square = SquarePixels(reinterpret_cast<const uint8_t*>(pixels.data() + f));
    ASSERT_GE(square, f > 0 ? 40 * 40 * 9 / 10 : 0) << "frame " << f / frameBytes;
  }
}

}  // namespace
