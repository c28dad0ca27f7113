#include "session/Subsystems.h"

// Steps of subsystems that have not landed yet: each does nothing until its
// subsystem brings its own definition and removes the one here.
namespace ov {

void InstallCrashReporter() {}
void InitializeImageEncoders() {}
void LoadCursors() {}
void BuildCameraCatalogue() {}
void BuildAudioCatalogue() {}
void ProbeHardwareScreenCapture() {}

}  // namespace ov
