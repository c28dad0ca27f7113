// The resource folder, with its "Images" and "Cursors", and the loading of
// its pictures as premultiplied cairo surfaces.
#pragma once

#include <memory>
#include <string>

#include "orvanta/types.h"

typedef struct _cairo_surface cairo_surface_t;

// The folder; "<the engine's private folder>/Resource" after ovInitialize,
// or what the host set.
extern wchar_t g_szResourcePath[OV_MAX_PATH];

namespace ov {

// A cairo surface of the engine's, counted among its live bitmaps.
struct SurfaceRelease {
  void operator()(cairo_surface_t* surface) const;
};
using Surface = std::unique_ptr<cairo_surface_t, SurfaceRelease>;
// Takes over a new surface and counts it; null (the surface destroyed) when
// cairo could not make it.
Surface CountedSurface(cairo_surface_t* surface);

// ovInitialize's step: the default folder beside the engine.
void InitializeResourceFolder();
// "<folder>/Images/<name>" and "<folder>/Cursors/<name>", in UTF-8.
std::string ImagePath(const char* name);
std::string CursorPath(const char* name);

// A picture of "Images" scaled to width x height. A file that cannot be
// read logs "Failed to load file:<path>" and leaves the picture empty
// (all clear); null only when the surface itself cannot be made.
Surface LoadImageSized(const char* name, int width, int height);
// The same at the picture's own size; null when the file cannot be read.
Surface LoadImageNatural(const char* name);
// The same into the caller's premultiplied pixels, which are cleared first.
void LoadImageInto(const char* name, int width, int height, uint8_t* pixels, int pitch);

}  // namespace ov
