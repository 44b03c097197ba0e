#include "framework/script_part.h"

#include <fmt/format.h>

#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

ScriptPart& ScriptPart::AddTo(iBase& owner, const ScriptFamily& family) {
  auto part = std::make_unique<ScriptPart>(owner, family);
  ScriptPart& added = *part;
  owner.mParts.Add(std::move(part));
  return added;
}

ParameterRow ScriptPart::Row(const ScriptFamily& family, std::string source,
                             std::string_view help) {
  return StringRow(kSourceRow, "script", std::move(source), help).Script(family);
}

bool ScriptPart::Open(const std::string& source) {
  if (source != mSource) {
    mSource = source;
    mFailure.clear();
  }
  if (mFailure.empty() && !mRunner.Compile(mSource)) NoteError();
  if (!mFailure.empty()) return mOwner.Deactivate(mFailure.c_str());
  const SceneTime& time = *mOwner.mTime;
  mRunner.SetOp({mOwner.mName, time.elapsed, time.stepDuration, mOwner.mScene->mClock.frame});
  return true;
}

void ScriptPart::Close() {
  if (!mFailure.empty()) return;
  NoteError();
  if (mFailure.empty()) return;
  // In the step in which it fails nobody can count on what it did.
  mOwner.TakeBackRun(mFailure.c_str());
  mOwner.SetFlag(FLAG_ACTIVE, false);
}

void ScriptPart::NoteError() {
  const ScriptError error = mRunner.Error();
  if (!error) return;
  const BaseNode* node = mOwner.Node();
  const TextOrigin* origin = node ? node->OriginOf(kSourceRow) : nullptr;
  const std::string file = origin && !origin->file.empty() ? origin->file : "script";
  const u32 line = origin ? origin->LineOf(error.line) : error.line;
  mFailure = line > 0 ? fmt::format("{}:{}: {}", file, line, error.text)
                      : fmt::format("{}: {}", file, error.text);
}

void ScriptPart::Reset() {
  mRunner.Free();
  mFailure.clear();
}

void ScriptPart::Persist(StateArchive& archive) { archive(mSource, mFailure); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
