// What the system report tells about the machine.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ov {

struct OsInfo {
  int version[4] = {0, 0, 0, 0};  // kernel release, four numbers
  std::string name;               // e.g. "Debian GNU/Linux 12 (bookworm)"
  std::string machine;            // uname machine, e.g. "x86_64"
};
OsInfo GetOsInfo();

struct MemoryInfo {
  uint32_t loadPercent = 0;
  uint64_t totalBytes = 0;
  uint64_t availableBytes = 0;
};
bool GetMemoryInfo(MemoryInfo* info);

struct CpuTopology {
  int numaNodes = 0;
  int packages = 0;
  int cores = 0;
  int logicalProcessors = 0;
  int caches[3] = {0, 0, 0};  // L1, L2, L3 instances
};
bool GetCpuTopology(CpuTopology* topology);

// One name per logical processor, in order.
std::vector<std::string> ProcessorNames();

struct CpuIdRegs {
  uint32_t eax = 0, ebx = 0, ecx = 0, edx = 0;
};
// False where the instruction is not available.
bool CpuId(uint32_t leaf, uint32_t subleaf, CpuIdRegs* regs);

struct LocaleInfo {
  std::string locale;    // the locale name in use, e.g. "en_US.UTF-8"
  std::string language;  // e.g. "English (United States)"
  std::string codeset;   // e.g. "UTF-8"
};
LocaleInfo GetLocaleInfo();

}  // namespace ov
