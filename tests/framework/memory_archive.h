// An archive of states in memory.
#pragma once
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Keeps a state in memory.
class MemoryArchive : public StateArchive {
 public:
  bool IsLoading() const override { return mIsLoading; }
  void Rewind() { mIsLoading = true; }

 protected:
  void Block(void* data, std::size_t bytes, i32) override {
    auto* values = static_cast<char*>(data);
    if (!mIsLoading) return void(mBytes.insert(mBytes.end(), values, values + bytes));
    if (mAt + bytes > mBytes.size()) return Fail("the end came too early");
    std::copy_n(mBytes.begin() + static_cast<std::ptrdiff_t>(mAt), bytes, values);
    mAt += bytes;
  }

 private:
  bool mIsLoading = false;
  std::vector<char> mBytes;
  std::size_t mAt = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
