// The capture stream of a session: chosen at creation, joined at the stop.
#include "session/ScreenCapture.h"

HRESULT CScreenCapture::CreateCaptureStream(int32_t, int32_t) { return E_NOTIMPL; }

void CScreenCapture::JoinCaptureStreams() {}

void CScreenCapture::DestroyCaptureStreams() {}
