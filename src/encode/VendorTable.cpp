#include "encode/VendorTable.h"

#include <memory>
#include <mutex>
#include <vector>

#include "core/Log.h"
#include "orvanta/encoders.h"
#include "platform/IsolatedCall.h"
#include "platform/Library.h"

namespace ov {

namespace {

int32_t g_vendorTable[kVendorTableSize] = {};

// A driver that hangs while probing is given up on after this long.
constexpr uint32_t kProbeTimeoutMs = 20000;

struct EntryPoints {
  IntelInitCodecFn intelInit = nullptr;
  InitCodecFn amd2Init = nullptr;
  InitCodecFn amdInit = nullptr;
  InitCodecFn nvenc8Init = nullptr;
  InitCodecFn nvenc5Init = nullptr;
  IsSupport4KCodecFn intel4K = nullptr;
  IsSupport4KCodecFn amd24K = nullptr;
  IsSupport4KCodecFn amd4K = nullptr;
  CreateVideoCodecFn nvenc8Create = nullptr;
  CreateVideoCodecFn nvenc5Create = nullptr;
  CreateVideoCodecFn amd2Create = nullptr;
  CreateVideoCodecFn amdCreate = nullptr;
  CreateVideoCodecFn intelCreate = nullptr;
  GifCreateVideoCodecFn gifCreate = nullptr;
  GifCreateVideoReaderFn gifReader = nullptr;
  GifMuxFn gifMux = nullptr;
};

// The libraries stay loaded for the process's life: encoders that they made
// may outlive any later probe. The GIF library brings FFmpeg's filters with
// it, a good part of start-up for a recording that never makes a GIF, so it
// is loaded when first asked for.
struct EncoderLibraries {
  SharedLibrary intel, amd2, amd, nvenc8, nvenc5, gif;
  EntryPoints entry;
  std::string folder;
  std::once_flag gifLoaded;
};

std::vector<std::unique_ptr<EncoderLibraries>> g_loaded;
EncoderLibraries* g_libraries = nullptr;  // the newest probe's

template <typename Fn>
Fn Resolve(const SharedLibrary& library, const char* name) {
  return reinterpret_cast<Fn>(library.Symbol(name));
}

void Load(SharedLibrary* library, const std::string& folder, const char* name) {
  std::string path = folder + "/" + name;
  if (!library->Load(path))
    WriteLog(kDbg, "No encoder library %s: %s\n", name, library->Error().c_str());
}

EncoderLibraries* LoadLibraries(const std::string& folder) {
  EncoderLibraries* libs = g_loaded.emplace_back(std::make_unique<EncoderLibraries>()).get();
  Load(&libs->intel, folder, "libIntelCodec.so");
  Load(&libs->amd2, folder, "libAMDCodec2.so");
  Load(&libs->amd, folder, "libAMDCodec.so");
  Load(&libs->nvenc8, folder, "libNvidiaCodec8.so");
  Load(&libs->nvenc5, folder, "libNvidiaCodec5.so");
  EntryPoints& e = libs->entry;
  e.intelInit = Resolve<IntelInitCodecFn>(libs->intel, "Intel_InitCodec");
  e.amd2Init = Resolve<InitCodecFn>(libs->amd2, "AMD2_InitCodec");
  e.amdInit = Resolve<InitCodecFn>(libs->amd, "AMD_InitCodec");
  e.nvenc8Init = Resolve<InitCodecFn>(libs->nvenc8, "nvenc8_InitCodec");
  e.nvenc5Init = Resolve<InitCodecFn>(libs->nvenc5, "nvenc5_InitCodec");
  e.intel4K = Resolve<IsSupport4KCodecFn>(libs->intel, "Intel_IsSupport4KCodec");
  e.amd24K = Resolve<IsSupport4KCodecFn>(libs->amd2, "AMD2_IsSupport4KCodec");
  e.amd4K = Resolve<IsSupport4KCodecFn>(libs->amd, "AMD_IsSupport4KCodec");
  e.nvenc8Create = Resolve<CreateVideoCodecFn>(libs->nvenc8, "nvenc8_CreateVideoCodec");
  e.nvenc5Create = Resolve<CreateVideoCodecFn>(libs->nvenc5, "nvenc5_CreateVideoCodec");
  e.amd2Create = Resolve<CreateVideoCodecFn>(libs->amd2, "AMD2_CreateVideoCodec");
  e.amdCreate = Resolve<CreateVideoCodecFn>(libs->amd, "AMD_CreateVideoCodec");
  e.intelCreate = Resolve<CreateVideoCodecFn>(libs->intel, "Intel_CreateVideoCodec");
  libs->folder = folder;
  return libs;
}

const EntryPoints* GifEntries() {
  EncoderLibraries* libs = g_libraries;
  if (!libs) return nullptr;
  std::call_once(libs->gifLoaded, [libs] {
    Load(&libs->gif, libs->folder, "libGifCodec.so");
    EntryPoints& e = libs->entry;
    e.gifCreate = Resolve<GifCreateVideoCodecFn>(libs->gif, "GIF_CreateVideoCodec");
    e.gifReader = Resolve<GifCreateVideoReaderFn>(libs->gif, "GIF_CreateVideoReader");
    e.gifMux = Resolve<GifMuxFn>(libs->gif, "GIF_Mux");
  });
  return &libs->entry;
}

// The probe steps. Each runs in a throw-away copy of the process, on that
// copy's table, and may call nothing but the libraries' entry points.
void ProbeIntel(void* table, void* context) {
  const EntryPoints& e = *static_cast<const EntryPoints*>(context);
  e.intelInit(static_cast<int32_t*>(table), 0);
}

void ProbeAmd(void* table, void* context) {
  const EntryPoints& e = *static_cast<const EntryPoints*>(context);
  int32_t* entries = static_cast<int32_t*>(table);
  if ((!e.amd2Init || e.amd2Init(entries) != 0) && e.amdInit) e.amdInit(entries);
}

void ProbeNvidia(void* table, void* context) {
  const EntryPoints& e = *static_cast<const EntryPoints*>(context);
  int32_t* entries = static_cast<int32_t*>(table);
  if ((!e.nvenc8Init || e.nvenc8Init(entries) != 0) && e.nvenc5Init) e.nvenc5Init(entries);
}

// A crash or hang of a driver inside a step leaves the table as it was
// before the step.
void RunProbeStep(IsolatedFn step, EntryPoints* entry, const char* faultLine) {
  IsolatedResult result =
      RunIsolated(g_vendorTable, sizeof g_vendorTable, step, entry, kProbeTimeoutMs);
  if (result.outcome != IsolatedOutcome::Completed) WriteLog(kErr, "%s", faultLine);
}

void RunProbe(EntryPoints* e) {
  if (e->intelInit) RunProbeStep(ProbeIntel, e, "EXCEPTION: Intel encoder\n");
  if (e->amd2Init || e->amdInit) RunProbeStep(ProbeAmd, e, "EXCEPTION: AMD encoder\n");
  if (e->nvenc8Init || e->nvenc5Init) RunProbeStep(ProbeNvidia, e, "EXCEPTION: nv encoder\n");
  WriteLog(kMsg, "Video encoders: H264=%d, H265=%d, MPEG2=%d\n", g_vendorTable[1], g_vendorTable[2],
           g_vendorTable[3]);
}

const EntryPoints* Entries() { return g_libraries ? &g_libraries->entry : nullptr; }

int32_t TableEntry(int codec) {
  return codec >= 0 && codec < kVendorTableSize ? g_vendorTable[codec] : kVendorNone;
}

}  // namespace

int32_t* VendorTable() { return g_vendorTable; }

void ProbeVideoEncodersIn(const std::string& folder) {
  for (int32_t& entry : g_vendorTable) entry = kVendorNone;
  g_libraries = LoadLibraries(folder);
  RunProbe(&g_libraries->entry);
}

void ProbeVideoEncoders() {
  if (g_libraries) return;
  ProbeVideoEncodersIn(HelperFolder());
}

const char* CodecTypeName(int32_t codecType) {
  static const char* const kNames[] = {"WMV", "H264", "H265", "MPEG2", "GIF"};
  return codecType >= 0 && codecType <= 4 ? kNames[codecType] : "Unknown";
}

CVideoCodec* CreateLibraryVideoCodec(int32_t codecType, CWriterStatistics* pStatistics,
                                     CFrameRateControl* pRateControl) {
  if (codecType == 4) {
    const EntryPoints* gif = GifEntries();
    return gif && gif->gifCreate ? gif->gifCreate(pStatistics, pRateControl) : nullptr;
  }
  const EntryPoints* e = Entries();
  if (!e) return nullptr;
  CreateVideoCodecFn create = nullptr;
  switch (TableEntry(codecType)) {
    case kVendorNvidia8:
      create = e->nvenc8Create;
      break;
    case kVendorNvidia5:
      create = e->nvenc5Create;
      break;
    case kVendorAmd2:
      create = e->amd2Create;
      break;
    case kVendorAmd:
      create = e->amdCreate;
      break;
    case kVendorIntel:
      create = e->intelCreate;
      break;
    default:
      break;
  }
  return create ? create(codecType, pStatistics, pRateControl) : nullptr;
}

GifMuxFn GifMuxEntry() {
  const EntryPoints* e = GifEntries();
  return e ? e->gifMux : nullptr;
}

GifCreateVideoReaderFn GifVideoReaderEntry() {
  const EntryPoints* e = GifEntries();
  return e ? e->gifReader : nullptr;
}

}  // namespace ov

extern "C" BOOL IsSupportHwVideoCodec(int codec) {
  return ov::TableEntry(codec) != ov::kVendorNone;
}

extern "C" BOOL IsSupport4KCodec(int codec) {
  const ov::EntryPoints* e = ov::Entries();
  IsSupport4KCodecFn ask = nullptr;
  switch (ov::TableEntry(codec)) {
    case ov::kVendorAmd2:
      ask = e ? e->amd24K : nullptr;
      break;
    case ov::kVendorAmd:
      ask = e ? e->amd4K : nullptr;
      break;
    case ov::kVendorIntel:
      ask = e ? e->intel4K : nullptr;
      break;
    default:
      break;
  }
  return ask ? ask(codec) : 1;
}
