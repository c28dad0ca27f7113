#include "session/SystemReport.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "core/Globals.h"
#include "core/Log.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Library.h"
#include "platform/LogFile.h"
#include "platform/SystemInfo.h"

namespace ov {

namespace {

void WriteHead() {
  LocaleInfo locale = GetLocaleInfo();
  FileTimes times{0, 0};
  GetFileTimes(ModulePath(), &times);
  LocalTime created = ToLocal(times.created);
  LocalTime modified = ToLocal(times.modified);
  LocalTime now = Now();
  LogFile(
      "locale:%s\nlanguage:%s\nlanguage id:%s\nVersion:%s\n"
      "Creation Time:%04d-%02d-%02d %02d:%02d:%02d\nFile Time:%04d-%02d-%02d %02d:%02d:%02d\n"
      "==========================================\n%04d-%02d-%02d %02d:%02d:%02d\n"
      "==========================================\nRelease\n"
      "==========================================\n",
      locale.locale.c_str(), locale.language.c_str(), locale.codeset.c_str(), __DATE__ __TIME__,
      created.year, created.month, created.day, created.hour, created.minute, created.second,
      modified.year, modified.month, modified.day, modified.hour, modified.minute, modified.second,
      now.year, now.month, now.day, now.hour, now.minute, now.second);
}

// The kernel's release stands where the system file's version would, and the
// distribution's name where the product's would. Every Linux this engine runs
// on counts as the newest generation, so version-gated paths are on.
void WriteOperatingSystem() {
  OsInfo os = GetOsInfo();
  char text[1024];
  int n = std::snprintf(text, sizeof text, "System Version:%d.%d.%d.%d\n%s\n", os.version[0],
                        os.version[1], os.version[2], os.version[3], os.name.c_str());
  g_WindowsVersion = kWindows10;
  auto append = [&](const char* piece) {
    if (n >= 0 && n < static_cast<int>(sizeof text))
      n += std::snprintf(text + n, sizeof text - static_cast<size_t>(n), "%s", piece);
  };
  if (os.machine == "x86_64") {
    append("Processor=X86-64 ");
    append("Architecture=AMD64 ");
  } else if (os.machine == "i686" || os.machine == "i586") {
    append("Processor=PENTIUM ");
    append("Architecture=INTEL ");
  } else {
    char unknown[64];
    std::snprintf(unknown, sizeof unknown, "UNKNOWN(%s) ", os.machine.c_str());
    append(unknown);
  }
  if (sizeof(void*) == 8) append(" Win64 ");
  LogFile("%s\n", text);
}

void WriteMemory() {
  MemoryInfo memory;
  if (!GetMemoryInfo(&memory)) return;
  LogFile("==============Memory status============================\n");
  LogFile("%d percent of memory is in use.\n", static_cast<int>(memory.loadPercent));
  LogFile("%dG bytes total of physical memory.\n",
          static_cast<int>((memory.totalBytes + 0x20000000) >> 30));
  LogFile("%dG bytes free of physical memory.\n",
          static_cast<int>((memory.availableBytes + 0x20000000) >> 30));
}

void WriteTopology() {
  LogFile("=====================Processor=====================\n");
  CpuTopology topology;
  if (!GetCpuTopology(&topology)) {
    std::printf("\nError %d\n", LastError());
    return;
  }
  LogFile("Number of NUMA nodes: %d\n", topology.numaNodes);
  LogFile("Number of physical processor packages: %d\n", topology.packages);
  LogFile("Number of processor cores: %d\n", topology.cores);
  LogFile("Number of logical processors: %d\n", topology.logicalProcessors);
  LogFile("Number of processor L1/L2/L3 caches: %d/%d/%d\n", topology.caches[0], topology.caches[1],
          topology.caches[2]);
}

void WriteProcessorNames() {
  LogFile("=====================CPU=====================\n");
  std::vector<std::string> names = ProcessorNames();
  for (size_t i = 0; i < names.size() && i < 32; ++i)
    LogFile("%d.%ls\n", static_cast<int>(i), FromUtf8(names[i]).c_str());
}

struct Feature {
  const char* name;
  int word;  // 0: leaf 1 ECX, 1: leaf 1 EDX, 2: leaf 7 EBX, 3: leaf 7 ECX, 4: ext ECX, 5: ext EDX
  int bit;
  enum { kAny, kIntel, kAmd } vendor;
};

// Published CPUID bits, in the report's alphabetical order.
const Feature kFeatures[] = {
    {"3DNOW", 5, 31, Feature::kAmd},      {"3DNOWEXT", 5, 30, Feature::kAmd},
    {"ABM", 4, 5, Feature::kAmd},         {"ADX", 2, 19, Feature::kAny},
    {"AES", 0, 25, Feature::kAny},        {"AVX", 0, 28, Feature::kAny},
    {"AVX2", 2, 5, Feature::kAny},        {"AVX512CD", 2, 28, Feature::kAny},
    {"AVX512ER", 2, 27, Feature::kAny},   {"AVX512F", 2, 16, Feature::kAny},
    {"AVX512PF", 2, 26, Feature::kAny},   {"BMI1", 2, 3, Feature::kAny},
    {"BMI2", 2, 8, Feature::kAny},        {"CLFSH", 1, 19, Feature::kAny},
    {"CMPXCHG16B", 0, 13, Feature::kAny}, {"CX8", 1, 8, Feature::kAny},
    {"ERMS", 2, 9, Feature::kAny},        {"F16C", 0, 29, Feature::kAny},
    {"FMA", 0, 12, Feature::kAny},        {"FSGSBASE", 2, 0, Feature::kAny},
    {"FXSR", 1, 24, Feature::kAny},       {"HLE", 2, 4, Feature::kIntel},
    {"INVPCID", 2, 10, Feature::kAny},    {"LAHF", 4, 0, Feature::kAny},
    {"LZCNT", 4, 5, Feature::kIntel},     {"MMX", 1, 23, Feature::kAny},
    {"MMXEXT", 5, 22, Feature::kAmd},     {"MONITOR", 0, 3, Feature::kAny},
    {"MOVBE", 0, 22, Feature::kAny},      {"MSR", 1, 5, Feature::kAny},
    {"OSXSAVE", 0, 27, Feature::kAny},    {"PCLMULQDQ", 0, 1, Feature::kAny},
    {"POPCNT", 0, 23, Feature::kAny},     {"PREFETCHWT1", 3, 0, Feature::kAny},
    {"RDRAND", 0, 30, Feature::kAny},     {"RDSEED", 2, 18, Feature::kAny},
    {"RDTSCP", 5, 27, Feature::kIntel},   {"RTM", 2, 11, Feature::kIntel},
    {"SEP", 1, 11, Feature::kAny},        {"SHA", 2, 29, Feature::kAny},
    {"SSE", 1, 25, Feature::kAny},        {"SSE2", 1, 26, Feature::kAny},
    {"SSE3", 0, 0, Feature::kAny},        {"SSE4.1", 0, 19, Feature::kAny},
    {"SSE4.2", 0, 20, Feature::kAny},     {"SSE4a", 4, 6, Feature::kAmd},
    {"SSSE3", 0, 9, Feature::kAny},       {"SYSCALL", 5, 11, Feature::kIntel},
    {"TBM", 4, 21, Feature::kAmd},        {"XOP", 4, 11, Feature::kAmd},
    {"XSAVE", 0, 26, Feature::kAny},
};

void WriteCpuFeatures() {
  CpuIdRegs r;
  if (!CpuId(0, 0, &r)) return;
  uint32_t highest = r.eax;
  char vendor[13] = {};
  std::memcpy(vendor, &r.ebx, 4);
  std::memcpy(vendor + 4, &r.edx, 4);
  std::memcpy(vendor + 8, &r.ecx, 4);
  bool intel = std::strcmp(vendor, "GenuineIntel") == 0;
  bool amd = std::strcmp(vendor, "AuthenticAMD") == 0;

  uint32_t words[6] = {};
  if (highest >= 1 && CpuId(1, 0, &r)) {
    words[0] = r.ecx;
    words[1] = r.edx;
  }
  if (highest >= 7 && CpuId(7, 0, &r)) {
    words[2] = r.ebx;
    words[3] = r.ecx;
  }
  char brand[49] = {};
  CpuId(0x80000000, 0, &r);
  uint32_t highestExtended = r.eax;
  if (highestExtended >= 0x80000001 && CpuId(0x80000001, 0, &r)) {
    words[4] = r.ecx;
    words[5] = r.edx;
  }
  if (highestExtended >= 0x80000004) {
    for (uint32_t leaf = 0; leaf < 3; ++leaf) {
      CpuId(0x80000002 + leaf, 0, &r);
      std::memcpy(brand + leaf * 16, &r, 16);
    }
  }
  LogFile("%s\n", vendor);
  LogFile("%s\n", brand);
  auto has = [&](const Feature& f) {
    if (f.vendor == Feature::kIntel && !intel) return false;
    if (f.vendor == Feature::kAmd && !amd) return false;
    return ((words[f.word] >> f.bit) & 1) != 0;
  };
  for (const Feature& f : kFeatures)
    if (has(f)) LogFile("%s\n", f.name);
  for (const char* basic : {"MMX", "SSE", "SSE2", "SSE3"}) {
    for (const Feature& f : kFeatures)
      if (std::strcmp(f.name, basic) == 0 && !has(f)) LogFile("!!%s is unsupported!!\n", basic);
  }
}

}  // namespace

void WriteSystemReport() {
  int fd = OpenLogFile();
  SetChildStdHandle(fd);
  WriteHead();
  WriteOperatingSystem();
  WriteMemory();
  WriteTopology();
  WriteProcessorNames();
  WriteCpuFeatures();
  LogFile("==========================================\n\n");
}

}  // namespace ov
