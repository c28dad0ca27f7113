// A settable event with manual or automatic reset.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace ov {

class Event {
 public:
  enum class Reset { Manual, Auto };
  explicit Event(Reset reset, bool initiallySet = false)
      : m_manual(reset == Reset::Manual), m_set(initiallySet) {}

  void Set();
  void ResetEvent();
  // Waits without a limit.
  void Wait();
  // Returns true when the event was set within timeoutMs.
  bool WaitFor(uint32_t timeoutMs);
  bool IsSet() const;

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_cond;
  const bool m_manual;
  bool m_set;
};

}  // namespace ov
