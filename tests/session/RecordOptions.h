// The options of a session test's recording: H.264 at 30 fps of a region,
// no sound and no pointer unless a test asks.
#pragma once

#include "orvanta/orvanta.h"

struct Options {
  VideoOpt video{};
  AudioOpt audio{};
  MouseOpt mouse{};
  explicit Options(RECT region = {0, 0, 1280, 720}) {
    video.bStream = 1;
    video.rcScreen = region;
    video.CodecType = CodecType_H264;
    video.FrameRate = 30;
    video.videoQuality = 5;
  }
  static Options AudioOnly() {
    Options o;
    o.video.bStream = 0;
    o.audio.bRender = 1;
    return o;
  }
};
