// State archives over a typed stream.
#pragma once
#include "cache/hyper_file.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Appends state to a stream: every part is a chunk that starts with its id, every value a block,
/// the large ones packed.
class StateWriter : public StateArchive {
 public:
  StateWriter(HyperFile& file, i32 threads) : mFile(file), mThreads(threads) {}
  bool IsLoading() const override { return false; }
  void BeginPart(u64 id) override;
  void EndPart() override { mFile.WriteChunkEnd(); }

 protected:
  void Block(void* data, std::size_t bytes, i32 element) override;

 private:
  HyperFile& mFile;
  i32 mThreads;
};

/// Restores state from a stream that a `StateWriter` wrote.
class StateReader : public StateArchive {
 public:
  StateReader(HyperFile& file, i32 threads) : mFile(file), mThreads(threads) {}
  bool IsLoading() const override { return true; }
  void BeginPart(u64 id) override;
  void EndPart() override;

 protected:
  void Block(void* data, std::size_t bytes, i32 element) override;

 private:
  void FailAsFile(const char* what) { Fail(mFile.Error().empty() ? what : mFile.Error()); }

  HyperFile& mFile;
  i32 mThreads;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
