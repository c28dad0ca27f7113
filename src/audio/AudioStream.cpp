#include "audio/AudioStream.h"

// The sources come with the PulseAudio capture; until then a stream has none.
CAudioStream::CAudioStream() = default;
CAudioStream::~CAudioStream() = default;

HRESULT CAudioStream::Initialize(CWriterStatistics*, CAudioSourceCallback*) { return S_OK; }

void CAudioStream::Stop() {}

CRecoderProvidedClock* CAudioStream::Clock() const { return nullptr; }
