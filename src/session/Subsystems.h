// Start-up steps that belong to other subsystems. Each is idempotent and runs
// once from ovInitialize, in the engine's fixed order.
#pragma once

namespace ov {

void InstallCrashReporter();     // crash report: dump, text, log
void ReportVideoHardware();      // video controllers and monitors, from /sys and EDID
void BuildDisplayCatalogue();    // displays; sets g_rcDisplay to the first
void InitializeImageEncoders();  // still-image writers (PNG, JPEG, BMP, GIF, TIFF)
void InitializePixelDispatch();  // SIMD paths of the pixel primitives
void LoadCursors();              // cursor images for the mouse overlay
void BuildCameraCatalogue();     // V4L2 devices
void BuildAudioCatalogue();      // audio codecs and endpoints
void ProbeHardwareScreenCapture();

}  // namespace ov
