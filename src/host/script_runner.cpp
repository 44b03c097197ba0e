#include "host/script_runner.h"

#include <algorithm>

namespace MELDO_GLOBAL::host {

void ScriptRunner::Free() {
  for (Slot& slot : mSlots) slot = {};
  mSource.clear();
  mText.reset();
  mIsLate = false;
}

bool ScriptRunner::Compile(const std::string& source) {
  if (mSlots[0].state && source == mSource) return !Error();
  Free();
  mSource = source;
  mText.emplace(mSource);
  mSlots[0].state = std::make_unique<ScriptState>(*mText, mFamily);
  return !mSlots[0].state->Error();
}

void ScriptRunner::SetOp(const ScriptOp& op) {
  mOp = op;
  ++mOpNumber;
}

ScriptState* ScriptRunner::StateOf(u32 worker) {
  if (worker >= mSlots.size() || !mText || mIsLate) return nullptr;
  Slot& slot = mSlots[worker];
  if (!slot.state) return NewStateOf(worker);
  if (slot.opNumber != mOpNumber) {
    slot.opNumber = mOpNumber;
    slot.state->SetOp(mOp);
  }
  return slot.state.get();
}

ScriptState* ScriptRunner::NewStateOf(u32 worker) {
  Slot& slot = mSlots[worker];
  if (slot.state) slot.peak = std::max(slot.peak, slot.state->Peak());
  slot.state.reset();
  slot.state = std::make_unique<ScriptState>(*mText, mFamily);
  if (slot.state->IsLate()) mIsLate = true;
  slot.opNumber = mOpNumber;
  slot.state->SetOp(mOp);
  return slot.state.get();
}

ScriptError ScriptRunner::Error() const {
  for (const Slot& slot : mSlots)
    if (slot.state && slot.state->Error()) return slot.state->Error();
  return {};
}

double ScriptRunner::Memory() const {
  std::size_t largest = 0;
  for (const Slot& slot : mSlots)
    largest = std::max({largest, slot.peak, slot.state ? slot.state->Peak() : 0});
  return static_cast<double>(largest) * kMaxWorkers;
}

}  // namespace MELDO_GLOBAL::host
