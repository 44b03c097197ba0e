#include "host/worker_pool.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace MELDO_GLOBAL::host {

namespace {
std::atomic<i32> gFixedThreads{0};

extern "C" void OnInterrupt(int signal) {
  if (MainThread().TestBreak()) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return;
  }
  MainThread().Stop();
}
}  // namespace

i32 ThreadCount() {
  const i32 fixed = gFixedThreads.load();
  if (fixed > 0) return std::min(fixed, kMaxWorkers);
  return std::clamp(static_cast<i32>(std::thread::hardware_concurrency()), 1, kMaxWorkers);
}

void SetThreadCount(i32 count) { gFixedThreads.store(count); }

HostThread& MainThread() {
  static HostThread thread;
  return thread;
}

void InstallInterruptHandlers() {
  MainThread();  // constructed before a handler can run
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);
  // A terminal that is closed; who starts a run under nohup wants it to go on.
  if (std::signal(SIGHUP, OnInterrupt) == SIG_IGN) std::signal(SIGHUP, SIG_IGN);
}

// One generation counter per worker starts it; one shared counter of open shares ends the run.
struct WorkerPool::Impl {
  struct alignas(64) Worker {
    std::atomic<u32> generation{0};
    std::jthread thread;
  };
  std::vector<std::unique_ptr<Worker>> workers;
  Invoke invoke = nullptr;
  void* context = nullptr;
  bool quit = false;
  std::atomic<i32> open{0};
  std::mutex failureMutex;
  std::exception_ptr failure;

  void RunOne(i32 index) {
    try {
      invoke(context, index);
    } catch (...) {
      const std::lock_guard lock(failureMutex);
      if (!failure) failure = std::current_exception();
    }
  }

  void Main(Worker& self, i32 index) {
    for (u32 seen = 0;;) {
      self.generation.wait(seen);
      seen = self.generation.load();
      if (quit) return;
      RunOne(index);
      if (open.fetch_sub(1) == 1) open.notify_one();
    }
  }

  void Grow(i32 count) {
    workers.reserve(kMaxWorkers);
    while (static_cast<i32>(workers.size()) < count - 1) {
      auto worker = std::make_unique<Worker>();
      const i32 index = static_cast<i32>(workers.size()) + 1;
      worker->thread = std::jthread([this, w = worker.get(), index] { Main(*w, index); });
      workers.push_back(std::move(worker));  // only once its thread has started
    }
  }
};

WorkerPool::WorkerPool() : mImpl(std::make_unique<Impl>()) {}

WorkerPool::~WorkerPool() {
  mImpl->quit = true;
  for (auto& worker : mImpl->workers) {
    worker->generation.fetch_add(1);
    worker->generation.notify_one();
  }
  for (auto& worker : mImpl->workers) worker->thread.join();
}

WorkerPool& WorkerPool::Instance() {
  static WorkerPool pool;
  return pool;
}

void WorkerPool::RunShares(i32 count, Invoke invoke, void* context) {
  if (count > kMaxWorkers) throw std::invalid_argument("more shares than workers");
  if (count < 1) return;
  Impl& pool = *mImpl;
  pool.Grow(count);
  pool.invoke = invoke;
  pool.context = context;
  pool.failure = nullptr;
  pool.open.store(count - 1);
  for (i32 i = 0; i < count - 1; ++i) {
    pool.workers[i]->generation.fetch_add(1);
    pool.workers[i]->generation.notify_one();
  }
  pool.RunOne(0);
  for (i32 left = pool.open.load(); left > 0; left = pool.open.load()) pool.open.wait(left);
  if (pool.failure) std::rethrow_exception(pool.failure);
}

}  // namespace MELDO_GLOBAL::host
