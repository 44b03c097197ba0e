// Control threads: they cut work into shares and run one worker per share.
#pragma once
#include <array>
#include <utility>

#include "grids/work_data.h"

namespace MELDO_GLOBAL {

/// Cuts work into shares, runs them all on the worker pool and returns when the last has ended.
///
/// `Worker` is a record that holds its own copy of `Data` in `data` and does its share in `Main()`.
/// At most 64 workers. A control thread that isn't ready runs nothing.
template <class Worker, class Data>
class CustomControlThread {
 public:
  virtual ~CustomControlThread() = default;

  /// Gives each of `count` workers a copy of `data` with its number; false when there is no work.
  bool Init(const Data& data, i32 count) {
    mThreadCount = std::clamp(count, 1, host::kMaxWorkers);
    mReady = PrepareShares(data, mThreadCount);
    if (!mReady) return false;
    for (i32 i = 0; i < mThreadCount; ++i) {
      Data& record = mWorkers[i].data;
      record = data;
      record.index = i;
      record.count = mThreadCount;
      record.isLast = i == mThreadCount - 1;
      AssignShare(i);
      AdjustWorkerData(record);
    }
    return true;
  }

  /// Runs every worker once; on return all have ended.
  void Run() {
    mIdle = false;
    if (mReady) host::WorkerPool::Instance().Run(mThreadCount, [&](i32 i) { mWorkers[i].Main(); });
    mIdle = true;
  }

  bool IsReady() const { return mReady; }
  i32 GetThreadCount() const { return mThreadCount; }

 protected:
  /// May lower `count`; false when there is nothing to share.
  virtual bool PrepareShares(const Data& /*data*/, i32& /*count*/) { return true; }
  virtual void AssignShare(i32 /*index*/) {}
  virtual void AdjustWorkerData(Data& /*record*/) {}

  bool mReady = false;
  bool mIdle = true;
  i32 mThreadCount = 1;
  std::array<Worker, host::kMaxWorkers> mWorkers;
};

/// Worker of a z slab: calls `Evaluate(record)` of its target, an object or any class with that
/// operation.
template <class Target>
struct ScalarGridThread {
  MPdata data;
  void Main() { static_cast<Target*>(data.user)->Evaluate(data); }
};

/// Cuts a box of cells into z slabs; the last worker takes the remainder. `user` of the record is
/// the target.
template <class Worker, class Data = MPdata>
class ScalarGridControlThread : public CustomControlThread<Worker, Data> {
 public:
  void SetRegion(const VecInt3D& min, const VecInt3D& max) { mMin = min, mMax = max; }
  /// Lets the next runs call another target on the same shares.
  void SetTarget(void* target) {
    for (i32 i = 0; i < this->mThreadCount; ++i) this->mWorkers[i].data.user = target;
  }

 protected:
  bool PrepareShares(const Data&, i32& count) override {
    const i32 dz = mMax.z - mMin.z;
    count = std::min(count, dz);
    if (count <= 0) return false;
    mSlab = dz / count;
    return true;
  }
  void AssignShare(i32 i) override {
    Data& record = this->mWorkers[i].data;
    record.min = {mMin.x, mMin.y, mMin.z + i * mSlab};
    record.max = {mMax.x, mMax.y, i == this->mThreadCount - 1 ? mMax.z : mMin.z + (i + 1) * mSlab};
  }

 private:
  VecInt3D mMin{}, mMax{};
  i32 mSlab = 0;
};

/// Worker that runs a record which knows its own work.
template <class Data>
struct AnyThread {
  Data data;
  void Main() { data.Run(); }
};

/// Worker of a range of indices [first, last).
template <class Data>
struct LongIteratorThread {
  Data data;
  void Main() { data.Run(); }
};

/// Cuts a count of items into ranges of indices; the record has `first` and `last`.
template <class Worker, class Data>
class LongIteratorControlThread : public CustomControlThread<Worker, Data> {
 public:
  /// Not ready, and false, when `count` is 0.
  bool Init(const Data& data, i32 count, i32 first) {
    mCount = count;
    mFirst = first;
    if (count <= 0) {
      this->mReady = false;
      return false;
    }
    const i32 workers = std::min(host::ThreadCount(), count);
    mSlab = count / workers;
    return CustomControlThread<Worker, Data>::Init(data, workers);
  }

 protected:
  void AssignShare(i32 i) override {
    Data& record = this->mWorkers[i].data;
    record.first = mFirst + i * mSlab;
    record.last = i == this->mThreadCount - 1 ? mCount + mFirst : mFirst + (i + 1) * mSlab;
  }

 private:
  i32 mCount = 0, mFirst = 0, mSlab = 0;
};

}  // namespace MELDO_GLOBAL
