#include "framework/ibase.h"

#include <algorithm>
#include <limits>

#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

iBase::iBase(host::BaseNode* node, Scene* scene) { Rebind(node, scene); }

iBase::iBase(const iBase& other) {
  iBase::Assign(other);
  mDirtyStamp = 0;
}

void iBase::Rebind(host::BaseNode* node, Scene* scene) {
  mInterface.Bind(node);
  mName = node ? node->Name() : std::string();
  mScene = scene;
  mTime = scene ? &scene->mTime : nullptr;
}

bool iBase::NextPass() {
  ++mPass;
  if (mPass == mLoopBackPass && mLoopRounds > 0) {
    ++mLoopRound;
    if (mLoopRound < mLoopRounds) {
      mPass = 0;
    } else {
      mLoopRound = 0;
    }
  }
  if (mPass < mPassCount) return true;
  mPass = -1;
  return false;
}

void iBase::Assign(const iBase& other) {
  mInterface = other.mInterface;
  mFlags = other.mFlags;
  mDirtyStamp = other.mDirtyStamp;
  mScene = other.mScene;
  mTime = other.mTime;
  mStageMask = other.mStageMask;
  mPriority = other.mPriority;
  mPass = other.mPass;
  mPassCount = other.mPassCount;
  mName = other.mName;
  mMemberIndex = other.mMemberIndex;
}

void iBase::Release(bool) { SetFlag(FLAG_ACTIVE, false); }

bool iBase::ReadParameters(void*) {
  if (!mInterface.HasNode()) return false;
  const i32 stage = mInterface.GetLong(10001, 0);
  const i32 priority = mInterface.GetLong(10002, 0);
  if (stage >= 1) {
    mPriority = priority;
    mStageMask = StageBit(stage & 31);
  } else {
    // Classes without a base priority add up, frame by frame.
    constexpr i64 most = std::numeric_limits<i32>::max();
    mPriority = static_cast<i32>(std::clamp(i64{mPriority} + priority, -most, most));
  }
  SetFlag(FLAG_GROUP_BREAK, mInterface.GetBool(10003, true));
  return true;
}

bool iBase::ResolveLinks() { return mInterface.HasNode(); }

void iBase::CheckDirty() {
  if (!mInterface.HasNode() || Has(FLAG_DIRTY_CHECKED)) return;
  SetFlag(FLAG_ENABLED, true);
  u32 count = 0;
  if (!mInterface.GetDirtyCount(count)) {
    SetFlag(FLAG_ENABLED | FLAG_DIRTY | FLAG_DIRTY_HARD, false);
    return;
  }
  if (count != mDirtyStamp) {
    SetFlag(FLAG_DIRTY, true);
  } else {
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  }
  mDirtyStamp = count;
  SetFlag(FLAG_DIRTY_CHECKED, true);
}

void iBase::MarkDirty(bool hard) {
  SetFlag(FLAG_DIRTY, true);
  if (hard) SetFlag(FLAG_DIRTY_HARD, true);
  --mDirtyStamp;
}

void iBase::Persist(StateArchive& archive) {
  archive(mFlags, mDirtyStamp, mStageMask, mPriority, mPass, mLoopRound, mRuns);
}

bool iBase::HasCategory(i32 bitIndex) const {
  if (bitIndex == kBitAny) return false;
  u32 mask = 0;
  GetCategories(mask);
  return mask & (1u << bitIndex);
}

const GridLayout& iBase::GetDomain() const { return mScene->mDomain; }

bool iBase::IsCancelled() const { return mScene && mScene->IsCancelled(nullptr); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
