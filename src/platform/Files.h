// Files and folders by wide path, as the engine's records carry them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Text.h"

namespace ov {

// A path field's room in wide characters, the terminator included.
inline constexpr size_t kPathRoom = 260;
// True when the host's path fits a path field; never reads past its room.
bool PathFits(const wchar_t* path);
// Copies path into a field of kPathRoom; false, with the field left empty,
// when it does not fit. Nothing is ever cut into another path.
bool StorePath(wchar_t* field, const std::wstring& path);
// An absolute path that fits a field, ready for the file system (utf8 may be
// null); false for a null, empty, relative or too long one.
bool CheckedPath(const wchar_t* path, std::string* utf8 = nullptr);

// The user's documents folder: $XDG_DOCUMENTS_DIR, the user-dirs file, else ~/Documents.
std::wstring DocumentsFolder();
// The system's folder for temporary files, without a trailing separator.
std::wstring TempFolder();
// The user's folder for files that can be made again: $XDG_CACHE_HOME, else ~/.cache.
std::wstring CacheFolder();

// Each returns 0 on success, else the system's error number.
// Writes all of data, through interruptions and short writes.
int WriteAll(int fd, const void* data, size_t size);
int CreateFolder(const std::wstring& path);
int RemoveFile(const std::wstring& path);
int MoveFile(const std::wstring& from, const std::wstring& to);

bool PathExists(const std::wstring& path);
bool IsFolder(const std::wstring& path);

enum class PathKind { kMissing, kFile, kFolder, kOther };
// What the path names, links followed; kOther for FIFOs, devices, sockets.
PathKind KindOf(const std::wstring& path);
// True when both paths exist and name one file, whatever their spelling.
bool SameFile(const std::wstring& a, const std::wstring& b);
// The folder part of an absolute path: "/" for a file in the root.
std::wstring FolderOf(const std::wstring& path);
// Creates a new empty file named prefix and a unique suffix in folder, never
// reusing an existing name; 0 and its path, else the error number.
int CreateUniqueFile(const std::wstring& folder, const std::wstring& prefix, std::wstring* path);
// Renames from to to, replacing a file that stands at to.
int ReplaceFile(const std::wstring& from, const std::wstring& to);

struct FolderEntry {
  std::wstring name;
  bool isFolder;
};
// False when the folder cannot be opened.
bool ListFolder(const std::wstring& path, std::vector<FolderEntry>* entries);

// Bytes available to an unprivileged caller; 0 on failure.
uint64_t DiskFreeBytes(const std::wstring& path);

struct FileTimes {
  int64_t created;  // seconds since the epoch; the change time where birth is unknown
  int64_t modified;
};
bool GetFileTimes(const std::string& path, FileTimes* times);

int64_t FileSize(const std::wstring& path);  // -1 when missing

// The error number of the last failed call on this thread.
int LastError();

// A file descriptor that closes itself.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : m_fd(fd) {}
  ~UniqueFd() { Reset(); }
  UniqueFd(UniqueFd&& other) noexcept : m_fd(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  int Get() const { return m_fd; }
  bool Valid() const { return m_fd >= 0; }
  int Release() {
    int fd = m_fd;
    m_fd = -1;
    return fd;
  }
  void Reset(int fd = -1);

 private:
  int m_fd = -1;
};

}  // namespace ov
