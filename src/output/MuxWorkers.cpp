#include "output/MuxWorkers.h"

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "core/Log.h"

namespace ov {

namespace {

struct Worker {
  std::thread thread;
  std::atomic<bool> done{false};
  // Only a process that exits without shutting the engine down leaves one
  // here: a mux still running then goes on until the exit ends it.
  ~Worker() {
    if (!thread.joinable()) return;
    if (done.load() && thread.get_id() != std::this_thread::get_id())
      thread.join();
    else
      thread.detach();
  }
};

std::mutex g_workersMutex;
std::list<std::shared_ptr<Worker>> g_workers;

// Joins the workers that have ended, or all of them.
void Reap(bool all) {
  std::list<std::shared_ptr<Worker>> leaving;
  {
    std::lock_guard<std::mutex> lock(g_workersMutex);
    for (auto it = g_workers.begin(); it != g_workers.end();) {
      auto next = std::next(it);
      if (all || (*it)->done.load()) leaving.splice(leaving.end(), g_workers, it);
      it = next;
    }
  }
  for (const auto& worker : leaving) {
    if (worker->thread.get_id() == std::this_thread::get_id())
      worker->thread.detach();  // ends right after the callback that called us
    else
      worker->thread.join();
  }
}

}  // namespace

bool StartMuxWorker(std::function<void()> work) {
  Reap(false);
  std::lock_guard<std::mutex> lock(g_workersMutex);
  auto worker = std::make_shared<Worker>();
  try {
    // The thread keeps its record alive: one that had to be let go on its
    // own still marks itself done.
    worker->thread = std::thread([worker, work = std::move(work)] {
      work();
      worker->done.store(true);
    });
    g_workers.push_back(worker);
  } catch (const std::system_error&) {
    WriteLog(kErr, "Failed to start the mux thread\n");
    return false;
  }
  return true;
}

void JoinMuxWorkers() { Reap(true); }

}  // namespace ov
