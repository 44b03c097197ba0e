#include "host/script_runner.h"

namespace MELDO_GLOBAL::host {

void ScriptRunner::Free() {
  for (Slot& slot : mSlots) slot = {};
  mSource.clear();
  mIsLate = false;
}

bool ScriptRunner::Compile(const std::string& source) {
  if (mSlots[0].state && source == mSource) return !Error();
  Free();
  mSource = source;
  mSlots[0].state = std::make_unique<ScriptState>(mSource, mFamily);
  return !mSlots[0].state->Error();
}

void ScriptRunner::SetOp(const ScriptOp& op) {
  mOp = op;
  ++mOpNumber;
}

ScriptState* ScriptRunner::StateOf(u32 worker) {
  if (worker >= mSlots.size() || !mSlots[0].state || mIsLate) return nullptr;
  Slot& slot = mSlots[worker];
  if (!slot.state) {
    slot.state = std::make_unique<ScriptState>(mSource, mFamily);
    if (slot.state->IsLate()) mIsLate = true;
  }
  if (slot.opNumber != mOpNumber) {
    slot.opNumber = mOpNumber;
    slot.state->SetOp(mOp);
  }
  return slot.state.get();
}

ScriptError ScriptRunner::Error() const {
  for (const Slot& slot : mSlots)
    if (slot.state && slot.state->Error()) return slot.state->Error();
  return {};
}

}  // namespace MELDO_GLOBAL::host
