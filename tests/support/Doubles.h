// Stand-ins for what a host or the session hands the engine, shared by the
// tests and the benchmarks: reports that go nowhere, and a mux callback
// that records what it is told and lets the caller wait for the end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "core/FrameRateControl.h"
#include "core/WriterStatistics.h"
#include "orvanta/orvanta.h"

namespace ovtest {

class NullStatistics : public CWriterStatistics, public CFrameRateControl {
 public:
  void AddBytes(int64_t) override {}
  void AddFrame() override {}
  void ReportFrameTime(uint32_t) override {}
};

class MuxWaiter : public CMuxCallback {
 public:
  // Cancels at the first report of at least this percent; -1 never.
  explicit MuxWaiter(int cancelAt = -1) : m_cancelAt(cancelAt) {}

  int OnProgress(int percent) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_progress.push_back(percent);
    m_changed.notify_all();
    return m_cancelAt >= 0 && percent >= m_cancelAt ? 0 : 1;
  }
  void OnComplete(HRESULT result) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_result = result;
    ++m_completions;
    m_changed.notify_all();
  }
  // Waits up to limitSeconds for OnComplete; false when it did not come.
  bool Wait(int limitSeconds) { return WaitForProgress(101, limitSeconds); }
  // Waits until a report of at least percent, or the end.
  bool WaitForProgress(int percent, int limitSeconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(limitSeconds), [&] {
      return m_completions > 0 || (!m_progress.empty() && m_progress.back() >= percent);
    });
  }
  HRESULT Result() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_result;
  }
  std::vector<int> Progress() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_progress;
  }
  int Completions() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_completions;
  }

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  const int m_cancelAt;
  std::vector<int> m_progress;
  int m_completions = 0;
  HRESULT m_result = E_FAIL;
};

}  // namespace ovtest
