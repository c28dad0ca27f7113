#include <gtest/gtest.h>

#include "core/Globals.h"
#include "session/ScreenCapture.h"

namespace {

// The capture never goes faster than the frame rate and follows a slow
// encoder down and back up.
TEST(FrameRateControl, IntervalFollowsSlowEncoderAndReturnsToBase) {
  g_videoOpt.FrameRate = 30;
  auto* capture = new CScreenCapture();
  EXPECT_EQ(capture->m_dwBaseInterval, 33u);
  EXPECT_EQ(capture->m_dwFrameInterval.load(), 33u);
  capture->ReportFrameTime(10);
  EXPECT_EQ(capture->m_dwFrameInterval.load(), 33u);
  capture->ReportFrameTime(50);
  EXPECT_EQ(capture->m_dwFrameInterval.load(), 50u);
  capture->ReportFrameTime(40);
  EXPECT_EQ(capture->m_dwFrameInterval.load(), 40u);
  capture->ReportFrameTime(33);
  EXPECT_EQ(capture->m_dwFrameInterval.load(), 33u);
  delete capture;
}

}  // namespace
