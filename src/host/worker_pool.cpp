#include "host/worker_pool.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <system_error>
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

namespace {

thread_local bool tIsInShare = false;

}  // namespace

// One generation counter per worker starts it, another one tells that it is done.
struct WorkerPool::Impl {
  /// What one run shares with the workers that it found idle. Each of them, and the caller, begins
  /// with the share of its own number; shares that found no worker go to whoever is free first.
  struct SharedRun {
    void (*invoke)(void* context, i32 index);
    void* context;
    i32 count;
    std::atomic<i32> next;  ///< the first share that has no worker of its own
    std::mutex failureMutex{};
    std::exception_ptr failure{};

    void Work(i32 index) {
      for (; index < count; index = next.fetch_add(1)) {
        try {
          invoke(context, index);
        } catch (...) {
          const std::lock_guard lock(failureMutex);
          if (!failure) failure = std::current_exception();
        }
      }
    }
  };

  struct alignas(64) Worker {
    std::atomic<u32> generation{0}, done{0};
    SharedRun* run = nullptr;
    i32 first = 0;  ///< its first share of that run
    bool isBusy = false;
    std::jthread thread;
  };
  std::mutex mutex;  ///< of the list of workers and of who is busy
  std::vector<std::unique_ptr<Worker>> workers;
  bool quit = false;

  void Main(Worker& self) {
    tIsInShare = true;
    for (u32 seen = 0;;) {
      self.generation.wait(seen);
      seen = self.generation.load();
      if (quit) return;
      self.run->Work(self.first);
      self.done.store(seen);
      self.done.notify_one();
    }
  }

  void Grow(i32 count) {
    workers.reserve(kMaxWorkers);
    while (static_cast<i32>(workers.size()) < count - 1) {
      auto worker = std::make_unique<Worker>();
      try {
        worker->thread = std::jthread([this, w = worker.get()] { Main(*w); });
      } catch (const std::system_error&) {
        return;  // where the system gives no more, those that there are do all the work
      }
      workers.push_back(std::move(worker));  // only once its thread has started
    }
  }

  /// Marks idle workers as busy, the first ones first, `most` at most; their number.
  i32 Take(i32 most, std::array<Worker*, kMaxWorkers>& taken) {
    const std::lock_guard lock(mutex);
    Grow(most + 1);
    i32 n = 0;
    for (auto& worker : workers) {
      if (n == most) break;
      if (worker->isBusy) continue;
      worker->isBusy = true;
      taken[n++] = worker.get();
    }
    return n;
  }

  void Free(const std::array<Worker*, kMaxWorkers>& taken, i32 n) {
    const std::lock_guard lock(mutex);
    for (i32 i = 0; i < n; ++i) taken[i]->isBusy = false;
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
  if (count == 1) return invoke(context, 0);
  std::array<Impl::Worker*, kMaxWorkers> team;
  const bool isNested = tIsInShare;
  const i32 helpers = isNested ? 0 : mImpl->Take(count - 1, team);
  Impl::SharedRun run{.invoke = invoke, .context = context, .count = count, .next = helpers + 1};
  for (i32 i = 0; i < helpers; ++i) {
    team[i]->run = &run;
    team[i]->first = i + 1;
    team[i]->generation.fetch_add(1);
    team[i]->generation.notify_one();
  }
  tIsInShare = true;
  run.Work(0);
  tIsInShare = isNested;
  for (i32 i = 0; i < helpers; ++i) {
    const u32 wanted = team[i]->generation.load();
    for (u32 seen = team[i]->done.load(); seen != wanted; seen = team[i]->done.load())
      team[i]->done.wait(seen);
  }
  if (helpers > 0) mImpl->Free(team, helpers);
  if (run.failure) std::rethrow_exception(run.failure);
}

}  // namespace MELDO_GLOBAL::host
