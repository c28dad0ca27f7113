// A base that makes a class neither copyable nor movable: for owners of
// handles, threads and buffers whose copies would free them twice.
#pragma once

namespace ov {

class NonCopyable {
 public:
  NonCopyable(const NonCopyable&) = delete;
  NonCopyable& operator=(const NonCopyable&) = delete;

 protected:
  NonCopyable() = default;
  ~NonCopyable() = default;
};

}  // namespace ov
