#include "platform/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace ov {

int WriteAll(int fd, const void* data, size_t size) {
  const auto* p = static_cast<const uint8_t*>(data);
  while (size > 0) {
    const ssize_t n = write(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return ENOSPC;
    p += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

bool PathFits(const wchar_t* path) { return path && wcsnlen(path, kPathRoom) < kPathRoom; }

bool StorePath(wchar_t* field, const std::wstring& path) {
  field[0] = L'\0';
  if (path.size() >= kPathRoom || path.find(L'\0') != std::wstring::npos) return false;
  wmemcpy(field, path.c_str(), path.size() + 1);
  return true;
}

bool CheckedPath(const wchar_t* path, std::string* utf8) {
  if (!PathFits(path) || path[0] != L'/') return false;
  if (utf8) *utf8 = ToUtf8(path);
  return true;
}

static std::string HomeFolder() {
  if (const char* home = getenv("HOME"); home && *home) return home;
  if (passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/tmp";
}

// Reads XDG_DOCUMENTS_DIR from ~/.config/user-dirs.dirs, as xdg-user-dirs writes it.
static std::string UserDirsDocuments(const std::string& home) {
  const char* config = getenv("XDG_CONFIG_HOME");
  std::string file =
      (config && *config ? std::string(config) : home + "/.config") + "/user-dirs.dirs";
  FILE* f = fopen(file.c_str(), "r");
  if (!f) return {};
  std::string result;
  char line[1024];
  while (fgets(line, sizeof line, f)) {
    const char* key = "XDG_DOCUMENTS_DIR=\"";
    if (strncmp(line, key, strlen(key)) != 0) continue;
    std::string value(line + strlen(key));
    size_t quote = value.find('"');
    if (quote == std::string::npos) break;
    value.resize(quote);
    if (value.rfind("$HOME", 0) == 0) value = home + value.substr(5);
    result = value;
    break;
  }
  fclose(f);
  return result;
}

std::wstring DocumentsFolder() {
  if (const char* dir = getenv("XDG_DOCUMENTS_DIR"); dir && *dir) return FromUtf8(dir);
  std::string home = HomeFolder();
  std::string fromFile = UserDirsDocuments(home);
  return FromUtf8(fromFile.empty() ? home + "/Documents" : fromFile);
}

std::wstring CacheFolder() {
  if (const char* dir = getenv("XDG_CACHE_HOME"); dir && *dir == '/') return FromUtf8(dir);
  return FromUtf8(HomeFolder() + "/.cache");
}

std::wstring TempFolder() {
  const char* dir = getenv("TMPDIR");
  std::string path = dir && *dir ? dir : "/tmp";
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return FromUtf8(path);
}

int CreateFolder(const std::wstring& path) {
  return mkdir(ToUtf8(path).c_str(), 0755) == 0 ? 0 : errno;
}

int RemoveFile(const std::wstring& path) { return unlink(ToUtf8(path).c_str()) == 0 ? 0 : errno; }

int MoveFile(const std::wstring& from, const std::wstring& to) {
  // Like the rename of the log rotation elsewhere: the target must not exist.
  std::string target = ToUtf8(to);
  if (access(target.c_str(), F_OK) == 0) return EEXIST;
  return rename(ToUtf8(from).c_str(), target.c_str()) == 0 ? 0 : errno;
}

bool PathExists(const std::wstring& path) { return access(ToUtf8(path).c_str(), F_OK) == 0; }

bool IsFolder(const std::wstring& path) {
  struct stat st;
  return stat(ToUtf8(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

PathKind KindOf(const std::wstring& path) {
  struct stat st;
  if (stat(ToUtf8(path).c_str(), &st) != 0) return PathKind::kMissing;
  if (S_ISREG(st.st_mode)) return PathKind::kFile;
  return S_ISDIR(st.st_mode) ? PathKind::kFolder : PathKind::kOther;
}

bool SameFile(const std::wstring& a, const std::wstring& b) {
  struct stat sa, sb;
  return stat(ToUtf8(a).c_str(), &sa) == 0 && stat(ToUtf8(b).c_str(), &sb) == 0 &&
         sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

std::wstring FolderOf(const std::wstring& path) {
  const size_t slash = path.rfind(L'/');
  if (slash == std::wstring::npos) return L".";
  return slash == 0 ? L"/" : path.substr(0, slash);
}

int CreateUniqueFile(const std::wstring& folder, const std::wstring& prefix, std::wstring* path) {
  static std::atomic<uint32_t> s_counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    wchar_t suffix[32];
    swprintf(suffix, 32, L"%05d%04x", static_cast<int>(getpid() % 100000),
             (s_counter.fetch_add(1) * 2654435761u) >> 16 & 0xFFFF);
    std::wstring candidate = folder + L"/" + prefix + suffix;
    const int fd = open(ToUtf8(candidate).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) {
      close(fd);
      *path = std::move(candidate);
      return 0;
    }
    if (errno != EEXIST) return errno;
  }
  return EEXIST;
}

int ReplaceFile(const std::wstring& from, const std::wstring& to) {
  return rename(ToUtf8(from).c_str(), ToUtf8(to).c_str()) == 0 ? 0 : errno;
}

bool ListFolder(const std::wstring& path, std::vector<FolderEntry>* entries) {
  std::string folder = ToUtf8(path);
  DIR* dir = opendir(folder.c_str());
  if (!dir) return false;
  while (dirent* e = readdir(dir)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    bool isFolder = e->d_type == DT_DIR;
    if (e->d_type == DT_UNKNOWN || e->d_type == DT_LNK) {
      struct stat st;
      isFolder = stat((folder + "/" + e->d_name).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    }
    entries->push_back(FolderEntry{FromUtf8(e->d_name), isFolder});
  }
  closedir(dir);
  return true;
}

uint64_t DiskFreeBytes(const std::wstring& path) {
  struct statvfs st;
  if (statvfs(ToUtf8(path).c_str(), &st) != 0) return 0;
  return static_cast<uint64_t>(st.f_bavail) * st.f_frsize;
}

bool GetFileTimes(const std::string& path, FileTimes* times) {
  struct statx st;
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME | STATX_MTIME | STATX_CTIME, &st) != 0) {
    return false;
  }
  times->created = (st.stx_mask & STATX_BTIME) ? st.stx_btime.tv_sec : st.stx_ctime.tv_sec;
  times->modified = st.stx_mtime.tv_sec;
  return true;
}

int64_t FileSize(const std::wstring& path) {
  struct stat st;
  if (stat(ToUtf8(path).c_str(), &st) != 0) return -1;
  return st.st_size;
}

int LastError() { return errno; }

void UniqueFd::Reset(int fd) {
  if (m_fd >= 0) close(m_fd);
  m_fd = fd;
}

}  // namespace ov
