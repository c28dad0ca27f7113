#include "platform/SystemInfo.h"

#include <dirent.h>
#include <langinfo.h>
#include <sys/utsname.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace ov {

namespace {

std::string ReadLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

std::string Unquote(std::string value) {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'')) {
    value = value.substr(1, value.size() - 2);
  }
  return value;
}

std::vector<std::string> ListNames(const std::string& folder, const char* prefix) {
  std::vector<std::string> names;
  DIR* dir = opendir(folder.c_str());
  if (!dir) return names;
  size_t n = strlen(prefix);
  while (dirent* e = readdir(dir)) {
    if (strncmp(e->d_name, prefix, n) == 0 && e->d_name[n] >= '0' && e->d_name[n] <= '9') {
      names.emplace_back(e->d_name);
    }
  }
  closedir(dir);
  return names;
}

}  // namespace

OsInfo GetOsInfo() {
  OsInfo info;
  utsname u{};
  if (uname(&u) == 0) {
    info.machine = u.machine;
    // "6.1.0-25-amd64" gives 6.1.0.25
    const char* p = u.release;
    for (int i = 0; i < 4 && *p; ++i) {
      while (*p && (*p < '0' || *p > '9')) ++p;
      info.version[i] = static_cast<int>(strtol(p, const_cast<char**>(&p), 10));
    }
  }
  std::ifstream release("/etc/os-release");
  std::string line;
  while (std::getline(release, line)) {
    if (line.rfind("PRETTY_NAME=", 0) == 0) info.name = Unquote(line.substr(12));
  }
  if (info.name.empty()) info.name = std::string("Linux ") + u.release;
  return info;
}

bool GetMemoryInfo(MemoryInfo* info) {
  std::ifstream in("/proc/meminfo");
  if (!in) return false;
  std::string key;
  uint64_t value;
  std::string unit;
  uint64_t total = 0, available = 0;
  while (in >> key >> value) {
    std::getline(in, unit);
    if (key == "MemTotal:") total = value * 1024;
    if (key == "MemAvailable:") available = value * 1024;
  }
  if (total == 0) return false;
  info->totalBytes = total;
  info->availableBytes = available;
  info->loadPercent = static_cast<uint32_t>((total - available) * 100 / total);
  return true;
}

bool GetCpuTopology(CpuTopology* topology) {
  const std::string base = "/sys/devices/system/cpu/";
  std::vector<std::string> cpus = ListNames(base, "cpu");
  if (cpus.empty()) return false;
  std::set<std::string> packages, cores;
  std::set<std::pair<std::string, std::string>> caches[3];
  for (const std::string& cpu : cpus) {
    std::string topo = base + cpu + "/topology/";
    std::string package = ReadLine(topo + "physical_package_id");
    if (package.empty()) continue;  // offline
    topology->logicalProcessors++;
    packages.insert(package);
    cores.insert(package + ":" + ReadLine(topo + "core_id"));
    for (const std::string& index : ListNames(base + cpu + "/cache/", "index")) {
      std::string cache = base + cpu + "/cache/" + index + "/";
      int level = atoi(ReadLine(cache + "level").c_str());
      if (level < 1 || level > 3) continue;
      caches[level - 1].insert({ReadLine(cache + "type"), ReadLine(cache + "shared_cpu_list")});
    }
  }
  topology->packages = static_cast<int>(packages.size());
  topology->cores = static_cast<int>(cores.size());
  for (int i = 0; i < 3; ++i) topology->caches[i] = static_cast<int>(caches[i].size());
  topology->numaNodes = static_cast<int>(ListNames("/sys/devices/system/node/", "node").size());
  if (topology->numaNodes == 0) topology->numaNodes = 1;
  return topology->logicalProcessors > 0;
}

std::vector<std::string> ProcessorNames() {
  std::vector<std::string> names;
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("model name", 0) != 0) continue;
    size_t colon = line.find(':');
    std::string name = colon == std::string::npos ? std::string() : line.substr(colon + 1);
    while (!name.empty() && name.front() == ' ') name.erase(name.begin());
    names.push_back(name);
  }
  return names;
}

bool CpuId(uint32_t leaf, uint32_t subleaf, CpuIdRegs* regs) {
#if defined(__x86_64__) || defined(__i386__)
  __cpuid_count(leaf, subleaf, regs->eax, regs->ebx, regs->ecx, regs->edx);
  return true;
#else
  (void)leaf;
  (void)subleaf;
  *regs = CpuIdRegs{};
  return false;
#endif
}

LocaleInfo GetLocaleInfo() {
  LocaleInfo info;
  // The process locale is whatever the host set; the user's preference is
  // what the environment says.
  const char* names[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
  for (const char* name : names) {
    if (const char* value = getenv(name); value && *value) {
      info.locale = value;
      break;
    }
  }
  // (assign, not = "C": GCC 12 at -O3 warns falsely about the literal copy)
  if (info.locale.empty()) info.locale.assign(1, 'C');
  std::string language = info.locale.substr(0, info.locale.find_first_of(".@"));
  info.language = language;
  const char* codeset = nl_langinfo(CODESET);
  info.codeset = codeset ? codeset : "";
  size_t dot = info.locale.find('.');
  if (dot != std::string::npos) {
    info.codeset = info.locale.substr(dot + 1, info.locale.find('@', dot) - dot - 1);
  }
  return info;
}

}  // namespace ov
