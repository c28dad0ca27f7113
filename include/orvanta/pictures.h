// Pictures shown over the desktop, above all the digits of a countdown
// before a recording: the host swaps the pictures and ends the object.
#pragma once

#include "orvanta/module.h"
#include "orvanta/types.h"

// A picture in a window above every other, through which the pointer
// passes; its transparent parts show the desktop where a compositing
// manager runs. Ended by the host with Destroy.
class OV_API CPictureObject : public CBaseClassObject {
 public:
  // Shows the PNG file at path (a full path) scaled to the window. A file
  // that cannot be read is logged, and the old picture stays.
  virtual void ChangePicture(const wchar_t* path) = 0;

 protected:
  CPictureObject() : CBaseClassObject("CPictureObject") {}
};

extern "C" {
// The picture at path in a width x height window centred on the display in
// use; it may hang over the display's edges. Null when the window cannot
// be made. A picture that cannot be read leaves the window empty.
OV_API CPictureObject* ShowPictureOnScreen(const wchar_t* path, int width, int height);
// The same in rect (screen pixels), as given.
OV_API CPictureObject* ShowPictureOnScreenEx(const wchar_t* path, const RECT* rect);
}
