// Screen recording: the option records and the recorder object.
#pragma once

#include "orvanta/module.h"
#include "orvanta/types.h"

// Video codecs a recording can use.
enum CodecType : int32_t {
  CodecType_WMV = 0,
  CodecType_H264 = 1,
  CodecType_H265 = 2,
  CodecType_MPEG2 = 3,
  CodecType_GIF = 4,
};

struct VideoOpt {
  BOOL bStream;          // record video at all; 0 is an audio-only session
  HWND hWindow;          // window to capture; 0 for a screen region
  RECT rcScreen;         // region in virtual-screen pixels
  RECT rcWindow;         // with hWindow: part of the window, from its outer corner
  int32_t CodecType;     // see enum CodecType
  int32_t FrameRate;     // frames per second, not 0
  int32_t videoQuality;  // quality step for the encoder
  int32_t nReserved;     // copied with the record, unused
};

struct AudioOpt {
  BOOL bRender;   // system sound, by loopback of the default output
  BOOL bCapture;  // the default microphone
};

// MouseOpt::Flag bits.
enum : uint32_t {
  MOUSE_DRAW_CURSOR = 1,
  MOUSE_DRAW_CLICKS = 2,
  MOUSE_CLICK_HIGHLIGHT = 4,
  MOUSE_POINTER_HIGHLIGHT = 16,
};

// MouseOpt::Mode values.
enum : int32_t {
  MOUSE_MODE_FIXED = 0,
  MOUSE_MODE_FOLLOW = 1,
  MOUSE_MODE_CENTER = 2,
  MOUSE_MODE_MANUAL = 3,
};

struct MouseOpt {
  uint32_t Flag;            // MOUSE_* bits
  uint32_t clickColor;      // 0x00RRGGBB
  uint32_t highlightColor;  // 0x00RRGGBB
  int32_t cursorScale;      // 1 double size, 2 half size, else own size
  int32_t cursorAlpha;      // 1..255; 0 and above 255 become 255
  int32_t Mode;             // MOUSE_MODE_*
};

class CCanvasCallback;
class CScreenCanvas;

// Failures that end a recording by themselves. The session then stops
// taking frames and samples at once, as if paused for good: GetProgress
// keeps the seconds of that moment and gives the failure code, negative, in
// place of the bytes, and Start and Resume do nothing. The temp files hold
// everything recorded up to the failure; Destroy finishes them as usual, and
// the durations in the captured-file record say what they really hold.
inline constexpr HRESULT OV_E_DISK_FULL = static_cast<HRESULT>(0x80070070u);    // no room left
inline constexpr HRESULT OV_E_WRITE_FAULT = static_cast<HRESULT>(0x8007001Du);  // other write error
inline constexpr HRESULT OV_E_DEVICE_LOST = static_cast<HRESULT>(0x8007048Fu);  // X server gone

// A recording session. Created stopped by ovVideoRecord; Destroy is the stop.
class OV_API CScreenRecoderObject : public CBaseClassObject {
 public:
  // A second Start is ignored, with a log line.
  virtual void Start() = 0;
  virtual void Pause() = 0;
  virtual void Resume() = 0;
  // Seconds since the start, pauses left out; bytes written so far, or a
  // negative OV_E_* code once a failure has ended the recording.
  virtual void GetProgress(uint32_t* pSeconds, int64_t* pBytes) = 0;
  virtual uint32_t GetFrameCounter() = 0;
  virtual CScreenCanvas* SetCanvasCallback(CCanvasCallback* pCallback) = 0;
  virtual void AddExcludeWindow(HWND hWnd) = 0;
  virtual void RemoveExcludeWindow(HWND hWnd) = 0;
  virtual void AddIncludeWindow(HWND hWnd) = 0;
  // A path of 260 characters or more is refused with a log line.
  virtual void SaveFrameToFile(const wchar_t* pszPath) = 0;
  virtual void RefreshBox() = 0;

 protected:
  using CBaseClassObject::CBaseClassObject;
};

extern "C" {

// Validates the options and creates a stopped session, or returns null.
// *pResult is written only once an object existed, and with E_INVALIDARG for
// a temp folder that is empty, relative or too long for the names of its
// files (at most 259 characters each); nothing is then made. One recording
// runs at a time: from any thread, a call while a session exists (until its
// Destroy has returned) is refused with null and a log line.
// A folder that still holds the temp files of an earlier recording is
// refused too (null, with a log line): recover them (RecoverCapturedFile) or
// remove them (FreeCapturedFile with bDelete, DeleteFolder) first.
OV_API CScreenRecoderObject* ovVideoRecord(HWND hHostWindow, const wchar_t* pszTempFolder,
                                           VideoOpt* pVideoOpt, AudioOpt audioOpt,
                                           MouseOpt* pMouseOpt, BOOL bShowRecordingBox,
                                           HRESULT* pResult);

// Whether the picture can be composed without chosen windows (the session's
// AddExcludeWindow), as found at ovInitialize: it needs a compositing manager.
OV_API BOOL SupportHarderwareScreenCapture();
// Turns the use of that capture on (the default) or off from the next
// ovVideoRecord on.
OV_API void EnabledHarderwareScreenCapture(BOOL enabled);
}
