// A stand-in for the encoder libraries, with the entry points of every slot.
// The tests link it under each library's name and steer each probe through
// the environment: OVFAKE_<prefix> (Intel, AMD2, AMD, nvenc8, nvenc5) holds
// words run in order:
//   <entry>=<value>  writes the vendor table
//   ret=<n>          the probe's result (0 without one)
//   crash            a real access fault
// Creators return an encoder whose Initialize answers 16 * slot + codec type,
// so a test sees which creator made it.
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "encode/VideoCodec.h"

namespace {

void Fault() {
  void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<volatile int*>(page) = 1;
}

int32_t RunScript(const char* prefix, int32_t* table) {
  std::string name = std::string("OVFAKE_") + prefix;
  const char* script = getenv(name.c_str());
  int32_t result = 0;
  if (!script) return result;
  char words[256];
  snprintf(words, sizeof words, "%s", script);
  char* saved = nullptr;
  for (char* word = strtok_r(words, " ", &saved); word; word = strtok_r(nullptr, " ", &saved)) {
    if (strcmp(word, "crash") == 0) {
      Fault();
    } else if (strncmp(word, "ret=", 4) == 0) {
      result = atoi(word + 4);
    } else if (const char* equals = strchr(word, '=')) {
      table[atoi(word)] = atoi(equals + 1);
    }
  }
  return result;
}

class FakeVideoCodec final : public CVideoCodec {
 public:
  FakeVideoCodec(int32_t slot, CWriterStatistics* s, CFrameRateControl* r)
      : CVideoCodec(s, r), m_slot(slot) {}
  HRESULT Initialize(int32_t codecType, int32_t, int32_t, int32_t, int32_t,
                     const wchar_t*) override {
    return 16 * m_slot + codecType;
  }
  int32_t WriteFrame(const uint8_t*, int32_t, int64_t, BOOL, BOOL) override { return 0; }
  void Finish() override {}

 private:
  int32_t m_slot;
};

}  // namespace

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

FAKE_EXPORT int32_t Intel_InitCodec(int32_t* table, int32_t) { return RunScript("Intel", table); }
FAKE_EXPORT int32_t AMD2_InitCodec(int32_t* table) { return RunScript("AMD2", table); }
FAKE_EXPORT int32_t AMD_InitCodec(int32_t* table) { return RunScript("AMD", table); }
FAKE_EXPORT int32_t nvenc8_InitCodec(int32_t* table) { return RunScript("nvenc8", table); }
FAKE_EXPORT int32_t nvenc5_InitCodec(int32_t* table) { return RunScript("nvenc5", table); }

#define FAKE_CREATOR(name, slot)                                                       \
  FAKE_EXPORT CVideoCodec* name(int32_t, CWriterStatistics* s, CFrameRateControl* r) { \
    return new FakeVideoCodec(slot, s, r);                                             \
  }
FAKE_CREATOR(nvenc8_CreateVideoCodec, 1)
FAKE_CREATOR(nvenc5_CreateVideoCodec, 2)
FAKE_CREATOR(AMD2_CreateVideoCodec, 3)
FAKE_CREATOR(AMD_CreateVideoCodec, 4)
FAKE_CREATOR(Intel_CreateVideoCodec, 5)

FAKE_EXPORT CVideoCodec* GIF_CreateVideoCodec(CWriterStatistics* s, CFrameRateControl* r) {
  return new FakeVideoCodec(6, s, r);
}
