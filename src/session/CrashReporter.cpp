#include "session/CrashReporter.h"

#include <cxxabi.h>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "core/Log.h"
#include "platform/Text.h"

namespace ov {

namespace {

// Everything the handler needs is made at installation: it allocates
// nothing and opens nothing but the dump.
constexpr size_t kDumpCapacity = 1 << 20;
constexpr size_t kStackBytes = 64 * 1024;
constexpr size_t kTextCapacity = 8192;
constexpr size_t kAltStackBytes = 256 * 1024;
constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS, SIGTRAP};

std::atomic<uint32_t> g_mainThread{0};
std::atomic<bool> g_installed{false};
std::atomic<bool> g_reporting{false};
char g_dumpPath[4096];
char g_fallbackPath[4096];
uint8_t* g_dump = nullptr;
char* g_text = nullptr;
char* g_demangled = nullptr;
size_t g_demangledSize = 0;

struct ExceptionEntry {
  uint32_t code;
  const char* text;
};

const ExceptionEntry kExceptions[] = {
    {0xC0000005,
     "The thread attempts to read from or write to a virtual address for which it does not have "
     "access."},
    {0x80000001, "The thread accessed memory allocated with the PAGE_GUARD modifier."},
    {0x80000002,
     "The thread attempts to read or write data that is misaligned on hardware that does not "
     "provide alignment. For example, 16-bit values must be aligned on 2-byte boundaries, 32-bit "
     "values on 4-byte boundaries, and so on."},
    {0x80000003, "A breakpoint is encountered."},
    {0x80000004,
     "A trace trap or other single instruction mechanism signals that one instruction is "
     "executed."},
    {0x80000029, "A frame consolidation has been executed."},
    {0xC0000006,
     "The thread tries to access a page that is not present, and the system is unable to load the "
     "page. For example, this exception might occur if a network connection is lost while running "
     "a program over a network."},
    {0xC0000008,
     "The thread used a handle to a kernel object that was invalid (probably because it had been "
     "closed.)"},
    {0xC000001D, "The thread tries to execute an invalid instruction."},
    {0xC0000024,
     "There is a mismatch between the type of object required by the requested operation and the "
     "type of object that is specified in the request."},
    {0xC0000025,
     "The thread attempts to continue execution after a non-continuable exception occurs."},
    {0xC0000026,
     "An exception handler returns an invalid disposition to the exception dispatcher. "
     "Programmers using a high-level language such as C should never encounter this exception."},
    {0xC000008C,
     "The thread attempts to access an array element that is out of bounds, and the underlying "
     "hardware supports bounds checking."},
    {0xC000008D,
     "One of the operands in a floating point operation is denormal. A denormal value is one that "
     "is too small to represent as a standard floating point value."},
    {0xC000008E,
     "The thread attempts to divide a floating point value by a floating point divisor of 0 "
     "(zero)."},
    {0xC000008F,
     "The result of a floating point operation cannot be represented exactly as a decimal "
     "fraction."},
    {0xC0000090, "A floating point exception that is not included in this list."},
    {0xC0000091,
     "The exponent of a floating point operation is greater than the magnitude allowed by the "
     "corresponding type."},
    {0xC0000092, "The stack has overflowed or underflowed, because of a floating point operation."},
    {0xC0000093,
     "The exponent of a floating point operation is less than the magnitude allowed by the "
     "corresponding type."},
    {0xC0000094,
     "The thread attempts to divide an integer value by an integer divisor of 0 (zero)."},
    {0xC0000095,
     "The result of an integer operation causes a carry out of the most significant bit of the "
     "result."},
    {0xC0000096,
     "The thread attempts to execute an instruction with an operation that is not allowed in the "
     "current computer mode."},
    {0xC00000FD, "The thread uses up its stack."},
    {0xE06D7363, "C++ Exception !"},
};

// The exception code that a signal stands for.
uint32_t CodeOfSignal(const siginfo_t* info) {
  switch (info->si_signo) {
    case SIGSEGV:
      return 0xC0000005;
    case SIGBUS:
      return info->si_code == BUS_ADRALN ? 0x80000002 : 0xC0000006;
    case SIGILL:
      return info->si_code == ILL_PRVOPC ? 0xC0000096 : 0xC000001D;
    case SIGTRAP:
      return info->si_code == TRAP_TRACE ? 0x80000004 : 0x80000003;
    case SIGFPE:
      switch (info->si_code) {
        case FPE_INTDIV:
          return 0xC0000094;
        case FPE_INTOVF:
          return 0xC0000095;
        case FPE_FLTDIV:
          return 0xC000008E;
        case FPE_FLTOVF:
          return 0xC0000091;
        case FPE_FLTUND:
          return 0xC0000093;
        case FPE_FLTRES:
          return 0xC000008F;
        case FPE_FLTSUB:
          return 0xC000008C;
        default:
          return 0xC0000090;
      }
    default:
      return 0;  // an abort: no code of its own
  }
}

// The dump under construction, in one buffer made at installation.
class DumpBuffer {
 public:
  uint32_t Size() const { return m_size; }
  bool Fits(size_t bytes) const { return m_size + bytes <= kDumpCapacity; }
  uint32_t Reserve(size_t bytes) {
    if (!Fits(bytes)) return 0;
    const uint32_t at = m_size;
    std::memset(g_dump + at, 0, bytes);
    m_size += static_cast<uint32_t>((bytes + 3) & ~size_t{3});
    return at;
  }
  template <typename T>
  void Put(uint32_t at, T value) {
    std::memcpy(g_dump + at, &value, sizeof value);
  }
  // A length-prefixed UTF-16 string; its offset, 0 when full.
  uint32_t String(const char* text) {
    const size_t n = std::strlen(text);
    const uint32_t at = Reserve(4 + 2 * n + 2);
    if (!at) return 0;
    Put<uint32_t>(at, static_cast<uint32_t>(2 * n));
    for (size_t i = 0; i < n; ++i) Put<uint16_t>(at + 4 + 2 * i, static_cast<uint8_t>(text[i]));
    return at;
  }

 private:
  uint32_t m_size = 0;
};

// The stream types and record sizes of the layout.
constexpr uint32_t kThreadListStream = 3, kModuleListStream = 4, kExceptionStream = 6;
constexpr uint32_t kHeaderBytes = 32, kDirectoryEntryBytes = 12, kThreadBytes = 48;
constexpr uint32_t kModuleBytes = 108, kExceptionBytes = 168, kContextBytes = 1232;

// An x64 thread context record from the signal's machine context.
uint32_t WriteContext(DumpBuffer& dump, const ucontext_t* uc) {
  const uint32_t at = dump.Reserve(kContextBytes);
  if (!at) return 0;
  const greg_t* r = uc->uc_mcontext.gregs;
  dump.Put<uint32_t>(at + 0x30, 0x10000B);  // control, integer and segments
  dump.Put<uint16_t>(at + 0x38, 0x33);
  dump.Put<uint32_t>(at + 0x44, static_cast<uint32_t>(r[REG_EFL]));
  const int order[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                       REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};
  for (int i = 0; i < 16; ++i) dump.Put<uint64_t>(at + 0x78 + 8 * i, r[order[i]]);
  dump.Put<uint64_t>(at + 0xF8, r[REG_RIP]);
  return at;
}

// The mapping that holds an address, from /proc/self/maps; false if none.
bool MappingOf(uintptr_t address, uintptr_t* begin, uintptr_t* end) {
  const int fd = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char buffer[4096];
  size_t have = 0;
  bool found = false;
  for (;;) {
    const ssize_t n = read(fd, buffer + have, sizeof buffer - 1 - have);
    if (n <= 0) break;
    have += static_cast<size_t>(n);
    buffer[have] = 0;
    char* line = buffer;
    while (char* eol = std::strchr(line, '\n')) {
      *eol = 0;
      unsigned long b = 0, e = 0;
      if (std::sscanf(line, "%lx-%lx", &b, &e) == 2 && address >= b && address < e) {
        *begin = b;
        *end = e;
        found = true;
        break;
      }
      line = eol + 1;
    }
    if (found) break;
    have = std::strlen(line);
    std::memmove(buffer, line, have);
  }
  close(fd);
  return found;
}

uint32_t ThreadId() { return static_cast<uint32_t>(syscall(SYS_gettid)); }

// The crashing thread with its stack and context, then the process's other
// threads by id (their stacks can't be read from here).
void WriteThreadList(DumpBuffer& dump, const ucontext_t* uc, uint32_t* directory,
                     uint32_t* contextAt) {
  uint32_t ids[256];
  uint32_t count = 0;
  ids[count++] = ThreadId();
  // Read with the system call itself: opendir allocates.
  const int tasks = open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  alignas(8) char entries[4096];
  for (long n; tasks >= 0 && (n = syscall(SYS_getdents64, tasks, entries, sizeof entries)) > 0;) {
    for (long offset = 0; offset < n;) {
      const auto* entry = reinterpret_cast<const dirent64*>(entries + offset);
      const uint32_t id = static_cast<uint32_t>(std::strtoul(entry->d_name, nullptr, 10));
      if (id && id != ids[0] && count < 256) ids[count++] = id;
      offset += entry->d_reclen;
    }
  }
  if (tasks >= 0) close(tasks);
  const uint32_t at = dump.Reserve(4 + size_t{kThreadBytes} * count);
  if (!at) return;
  dump.Put<uint32_t>(at, count);
  for (uint32_t i = 0; i < count; ++i) dump.Put<uint32_t>(at + 4 + i * kThreadBytes, ids[i]);
  // The stack from below the red zone up to its top, at most kStackBytes.
  const uintptr_t sp = static_cast<uintptr_t>(uc->uc_mcontext.gregs[REG_RSP]) - 128;
  uintptr_t begin = 0, end = 0;
  if (MappingOf(sp, &begin, &end)) {
    const size_t bytes = std::min<size_t>(end - sp, kStackBytes);
    if (const uint32_t memory = dump.Reserve(bytes)) {
      std::memcpy(g_dump + memory, reinterpret_cast<const void*>(sp), bytes);
      dump.Put<uint64_t>(at + 4 + 24, sp);
      dump.Put<uint32_t>(at + 4 + 32, static_cast<uint32_t>(bytes));
      dump.Put<uint32_t>(at + 4 + 36, memory);
    }
  }
  *contextAt = WriteContext(dump, uc);
  dump.Put<uint32_t>(at + 4 + 40, *contextAt ? kContextBytes : 0);
  dump.Put<uint32_t>(at + 4 + 44, *contextAt);
  directory[0] = kThreadListStream;
  directory[1] = 4 + kThreadBytes * count;
  directory[2] = at;
}

struct ModuleWalk {
  DumpBuffer* dump;
  uint32_t listAt;
  uint32_t count;
};

// The module list is written in two passes: the records first, so that
// they stand together, then their names.
int CountModule(dl_phdr_info*, size_t, void* data) {
  ++static_cast<ModuleWalk*>(data)->count;
  return 0;
}

int WriteModule(dl_phdr_info* info, size_t, void* data) {
  auto* walk = static_cast<ModuleWalk*>(data);
  uintptr_t low = UINTPTR_MAX, high = 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& p = info->dlpi_phdr[i];
    if (p.p_type != PT_LOAD) continue;
    low = std::min<uintptr_t>(low, info->dlpi_addr + p.p_vaddr);
    high = std::max<uintptr_t>(high, info->dlpi_addr + p.p_vaddr + p.p_memsz);
  }
  if (low >= high) return 0;
  const char* name = info->dlpi_name && *info->dlpi_name ? info->dlpi_name : g_dumpPath;
  char own[4096];
  if (name == g_dumpPath) {  // the program itself: its path is the dump's without ".mdmp"
    const size_t n = std::strlen(g_dumpPath) - 5;
    std::memcpy(own, g_dumpPath, n);
    own[n] = 0;
    name = own;
  }
  const uint32_t nameAt = walk->dump->String(name);
  if (!nameAt) return 1;
  const uint32_t at = walk->listAt + 4 + walk->count * kModuleBytes;
  walk->dump->Put<uint64_t>(at, low);
  walk->dump->Put<uint32_t>(at + 8, static_cast<uint32_t>(high - low));
  walk->dump->Put<uint32_t>(at + 20, nameAt);
  ++walk->count;
  return 0;
}

void WriteModuleList(DumpBuffer& dump, uint32_t* directory) {
  ModuleWalk walk{&dump, 0, 0};
  dl_iterate_phdr(CountModule, &walk);
  walk.listAt = dump.Reserve(4 + size_t{kModuleBytes} * walk.count);
  if (!walk.listAt) return;
  const uint32_t room = walk.count;
  walk.count = 0;
  dl_iterate_phdr(WriteModule, &walk);
  walk.count = std::min(walk.count, room);
  dump.Put<uint32_t>(walk.listAt, walk.count);
  directory[0] = kModuleListStream;
  directory[1] = 4 + kModuleBytes * walk.count;
  directory[2] = walk.listAt;
}

void WriteException(DumpBuffer& dump, const siginfo_t* info, const ucontext_t* uc, uint32_t code,
                    uint32_t contextAt, uint32_t* directory) {
  const uint32_t at = dump.Reserve(kExceptionBytes);
  if (!at) return;
  dump.Put<uint32_t>(at, ThreadId());
  dump.Put<uint32_t>(at + 8, code);
  dump.Put<uint64_t>(at + 24, static_cast<uint64_t>(uc->uc_mcontext.gregs[REG_RIP]));
  dump.Put<uint32_t>(at + 32, 2);
  dump.Put<uint64_t>(at + 40, static_cast<uint64_t>(info->si_signo));
  dump.Put<uint64_t>(at + 48, reinterpret_cast<uint64_t>(info->si_addr));
  dump.Put<uint32_t>(at + 160, contextAt ? kContextBytes : 0);
  dump.Put<uint32_t>(at + 164, contextAt);
  directory[0] = kExceptionStream;
  directory[1] = kExceptionBytes;
  directory[2] = at;
}

// Writes the dump to the program's path with ".mdmp", or else to the log
// folder; the path used, or null.
const char* WriteDump(const siginfo_t* info, const ucontext_t* uc, uint32_t code) {
  DumpBuffer dump;
  const uint32_t header = dump.Reserve(kHeaderBytes);
  const uint32_t directoryAt = dump.Reserve(3 * kDirectoryEntryBytes);
  uint32_t streams[3][3] = {};
  uint32_t contextAt = 0;
  WriteThreadList(dump, uc, streams[0], &contextAt);
  WriteModuleList(dump, streams[1]);
  WriteException(dump, info, uc, code, contextAt, streams[2]);
  uint32_t count = 0;
  for (const auto& s : streams) {
    if (!s[0]) continue;
    const uint32_t at = directoryAt + count++ * kDirectoryEntryBytes;
    dump.Put<uint32_t>(at, s[0]);
    dump.Put<uint32_t>(at + 4, s[1]);
    dump.Put<uint32_t>(at + 8, s[2]);
  }
  dump.Put<uint32_t>(header, 0x504D444D);  // "MDMP"
  dump.Put<uint32_t>(header + 4, 0xA793);
  dump.Put<uint32_t>(header + 8, count);
  dump.Put<uint32_t>(header + 12, directoryAt);
  dump.Put<uint32_t>(header + 20, static_cast<uint32_t>(time(nullptr)));

  for (const char* path : {g_dumpPath, g_fallbackPath}) {
    if (!*path) continue;
    unlink(path);
    const int fd = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) continue;
    size_t done = 0;
    while (done < dump.Size()) {
      const ssize_t n = write(fd, g_dump + done, dump.Size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    close(fd);
    if (done == dump.Size()) return path;
  }
  return nullptr;
}

class Text {
 public:
  void Add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    if (m_size >= kTextCapacity - 1) return;
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(g_text + m_size, kTextCapacity - m_size, format, args);
    va_end(args);
    if (n > 0) m_size = std::min(kTextCapacity - 1, m_size + static_cast<size_t>(n));
  }
  size_t Size() const { return m_size; }

 private:
  size_t m_size = 0;
};

struct Walk {
  Text* text;
  uintptr_t pc;
  bool reached = false;
  int frame = 0;
};

// The loader names the program as it was started; the report names it by
// its full path.
const char* ModulePath(const char* name) {
  static char program[4096];
  if (!name) return "";
  if (name[0] == '/' || !*g_dumpPath) return name;
  const size_t n = std::strlen(g_dumpPath) - 5;
  std::memcpy(program, g_dumpPath, n);
  program[n] = 0;
  return program;
}

void AddFrame(Text& text, int n, uintptr_t address) {
  text.Add("-------------%d-------------\r\n", n);
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(address), &info)) {
    text.Add("Callstack : 0x%016lx(%s)\r\n", static_cast<unsigned long>(address), "");
    return;
  }
  if (info.dli_sname) {
    int status = -1;
    char* name = abi::__cxa_demangle(info.dli_sname, g_demangled, &g_demangledSize, &status);
    if (status == 0 && name) g_demangled = name;
    text.Add("Function : %s\r\n", status == 0 && name ? name : info.dli_sname);
  }
  text.Add("Callstack : 0x%016lx(%s+0x%lx)\r\n", static_cast<unsigned long>(address),
           ModulePath(info.dli_fname),
           static_cast<unsigned long>(address - reinterpret_cast<uintptr_t>(info.dli_fbase)));
}

// The unwinder starts in this handler; the frames before the faulting one
// are left out.
_Unwind_Reason_Code OnFrame(_Unwind_Context* context, void* data) {
  auto* walk = static_cast<Walk*>(data);
  const uintptr_t ip = _Unwind_GetIP(context);
  if (!walk->reached) {
    if (ip != walk->pc) return _URC_NO_REASON;
    walk->reached = true;
  }
  if (ip == 0 || walk->frame >= 64) return _URC_END_OF_STACK;
  // Return addresses point behind their call; the faulting one does not.
  AddFrame(*walk->text, walk->frame, walk->frame == 0 ? ip : ip - 1);
  ++walk->frame;
  return _URC_NO_REASON;
}

void OnFatalSignal(int signal, siginfo_t* info, void* context) {
  // A second thread that crashes meanwhile waits for the first to end it.
  if (g_reporting.exchange(true)) {
    for (;;) pause();
  }
  // Demangling and the log allocate: a fault inside the allocator would
  // hang the report, and the alarm then ends the process all the same.
  alarm(10);
  const auto* uc = static_cast<const ucontext_t*>(context);
  const uint32_t code = CodeOfSignal(info);
  const uintptr_t pc = static_cast<uintptr_t>(uc->uc_mcontext.gregs[REG_RIP]);
  const char* dumpPath = WriteDump(info, uc, code);

  Dl_info module{};
  const bool known = dladdr(reinterpret_cast<void*>(pc), &module) && module.dli_fname;
  Text text;
  text.Add(
      "Application fault!\r\nPlease send this file to us:\r\n%s\r\nReference:\r\nException "
      "Address:0x%016lx\r\nModule:\r\n%s\r\nException code:0x%x\r\nException:\r\n%s\r\nException "
      "thead:%d(Main thread=%d)\r\n",
      dumpPath ? dumpPath : "", static_cast<unsigned long>(pc),
      known ? ModulePath(module.dli_fname) : "", code, ExceptionText(code),
      static_cast<int>(ThreadId()), static_cast<int>(g_mainThread.load()));
  text.Add(
      "Signal:%d(%s), Module offset:0x%lx\r\nCall stack:\r\n", signal, sigabbrev_np(signal),
      known ? static_cast<unsigned long>(pc - reinterpret_cast<uintptr_t>(module.dli_fbase)) : 0ul);
  Walk walk{&text, pc};
  _Unwind_Backtrace(OnFrame, &walk);
  if (!walk.reached) AddFrame(text, 0, pc);

  WriteLog(kErr, "%s\r\n", g_text);
  // No one to show a box to: the report goes to the terminal.
  static const char kLead[] = "Orvanta: the process crashed; report written to ";
  [[maybe_unused]] ssize_t ignored = write(STDERR_FILENO, kLead, sizeof kLead - 1);
  const char* where = dumpPath ? dumpPath : "the log";
  ignored = write(STDERR_FILENO, where, std::strlen(where));
  ignored = write(STDERR_FILENO, "\n", 1);
  ignored = write(STDERR_FILENO, g_text, text.Size());

  // Ends with the signal's own status once the handler returns.
  struct sigaction fallback {};
  fallback.sa_handler = SIG_DFL;
  sigaction(signal, &fallback, nullptr);
  raise(signal);
}

}  // namespace

const char* ExceptionText(uint32_t code) {
  for (const ExceptionEntry& e : kExceptions)
    if (e.code == code) return e.text;
  return "Unknow code";
}

void InstallCrashReporter(uint32_t mainThreadId) {
  g_mainThread = mainThreadId;
  if (g_installed.exchange(true)) return;
  const ssize_t n = readlink("/proc/self/exe", g_dumpPath, sizeof g_dumpPath - 6);
  if (n > 0) std::memcpy(g_dumpPath + n, ".mdmp", 6);
  const std::string fallback = ToUtf8(LogFolder()) + "/Orvanta.mdmp";
  if (fallback.size() < sizeof g_fallbackPath)
    std::memcpy(g_fallbackPath, fallback.c_str(), fallback.size() + 1);
  void* buffers = mmap(nullptr, kDumpCapacity + kTextCapacity + kAltStackBytes,
                       PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (buffers == MAP_FAILED) {
    WriteLog(kErr, "The crash reporter could not be installed\n");
    return;
  }
  g_dump = static_cast<uint8_t*>(buffers);
  g_text = reinterpret_cast<char*>(g_dump + kDumpCapacity);
  g_demangledSize = 1024;
  g_demangled = static_cast<char*>(std::malloc(g_demangledSize));

  stack_t alternate{};
  alternate.ss_sp = g_text + kTextCapacity;
  alternate.ss_size = kAltStackBytes;
  sigaltstack(&alternate, nullptr);
  struct sigaction action {};
  action.sa_sigaction = OnFatalSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  for (int signal : kSignals) sigaction(signal, &action, nullptr);
}

}  // namespace ov
