// Still pictures as files: the five formats a screenshot is saved in.
#pragma once

#include <cstdint>
#include <vector>

#include "orvanta/types.h"

namespace ov {

// The encoders by index, as hosts name them.
enum ImageEncoder : int32_t {
  kEncoderPng = 0,
  kEncoderJpeg = 1,
  kEncoderBmp = 2,
  kEncoderGif = 3,
  kEncoderTiff = 4,
  kEncoderCount = 5,
};
const char* ImageEncoderType(int32_t encoder);  // "image/png" ...; null outside

// An opaque picture: BGRX pixels, rows pitch bytes apart.
struct StillPicture {
  const uint8_t* pixels;
  int32_t width, height, pitch;
};

// The picture in the encoder's format; false (out empty) when it failed.
bool EncodeImage(int32_t encoder, const StillPicture& picture, std::vector<uint8_t>* out);
// Encodes and replaces the file at path: S_OK, E_INVALIDARG for an unknown
// encoder or a bad path, E_FAIL when encoding or writing failed.
HRESULT SaveImageFile(int32_t encoder, const StillPicture& picture, const wchar_t* path);

}  // namespace ov
