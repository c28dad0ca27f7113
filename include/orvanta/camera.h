// Cameras: the list of the machine's video capture devices, and a live
// preview of one of them in a window of the host, with still pictures.
#pragma once

#include "orvanta/module.h"
#include "orvanta/types.h"

// One camera, as GetCameraDevice hands it out.
struct CameraDevice {
  wchar_t Name[256];  // what the device calls itself
  // The frame of the last preview opened on it; 0 until then.
  int32_t width;
  int32_t height;
  int32_t frameRate;              // frames per second
  wchar_t DisplayNameName[1024];  // what opens it: the device node, e.g. "/dev/video0"
  uint32_t hash;                  // the same for the same device wherever it is plugged in
};

// Implemented by the host.
class CCameraCallback {
 public:
  // When the preview takes the camera's frame size: inside OpenCamera, on
  // its thread, before the first frame.
  virtual void OnVideoSize(int width, int height) = 0;
  // The preview has ended by itself: the camera is gone or failed. Called
  // once, on the preview's own thread; the object stays until the host
  // destroys it (which it may do from here).
  virtual void OnGraphEnd() = 0;

 protected:
  ~CCameraCallback() = default;
};

// A running preview. Its operations are called on one thread of the host.
class OV_API CCameraObject : public CBaseClassObject {
 public:
  // Fits the picture to the window's size anew at the next frame; call it
  // when the window has changed its size.
  virtual void Resize() = 0;
  virtual void Reserved() = 0;
  // Settings dialogs of the camera and of its output: there are none on
  // this system, and both return 1 (no pages) with nothing changed.
  virtual HRESULT ShowPinProperties(HWND hwndParent) = 0;
  virtual HRESULT ShowFilterProperties(HWND hwndParent) = 0;
  // The frame size; both untouched when there is no picture.
  virtual void GetVideoSize(int* pWidth, int* pHeight) = 0;
  // 0 when the camera's format is one the preview shows, 1 if not.
  virtual int CheckFormat() = 0;
  // Pause keeps the last picture and takes no frames; Run goes on.
  virtual HRESULT Pause() = 0;
  virtual HRESULT Run() = 0;
  // The last frame, at its own size, as a file: encoder 0 PNG, 1 JPEG,
  // 2 BMP, 3 GIF, 4 TIFF. E_FAIL before the first frame.
  virtual HRESULT SaveImage(int encoder, const wchar_t* pwszFile) = 0;

 protected:
  explicit CCameraObject(const char* pszName) : CBaseClassObject(pszName) {}
};

extern "C" {

// The cameras found at ovInitialize (or at the last device change), at most 4.
OV_API int GetCameraDeviceCount();
// The record at index: one of the 4 places, filled or not; null outside them.
OV_API CameraDevice* GetCameraDevice(int index);
// Starts a preview of camera index in the host's window hwndRenderer (an X
// window id): the picture centred, scaled down to fit and never up. Null,
// with a log line, for a bad index, a camera that cannot be opened or shown,
// or a window that does not exist. pCallback may be null.
OV_API CCameraObject* OpenCamera(HWND hwndRenderer, int index, CCameraCallback* pCallback);
}
