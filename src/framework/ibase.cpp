#include "framework/ibase.h"

#include <algorithm>
#include <limits>

#include "framework/constraint_port.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
/// The stages of a kind as a mask.
u32 StagesOf(const NodeKind& kind) {
  u32 mask = 0;
  for (const i32 stage : kind.stages) mask |= StageBit(stage);
  return mask;
}
}  // namespace

iBase::iBase(host::BaseNode* node, Scene* scene) : mKind(node ? node->Kind() : nullptr) {
  Rebind(node, scene);
  if (mKind) mStageMask = StagesOf(*mKind);
}

void iBase::ActAs(const NodeKind& kind) {
  mKind = &kind;
  mStageMask = StagesOf(kind);
}

i32 iBase::GetTypeId() const { return mKind ? mKind->typeId : 0; }
i32 iBase::GetListIndex() const { return mKind ? mKind->list : 0; }
void iBase::GetCategories(u32& mask) const { mask |= mKind ? mKind->categories : 0; }
bool iBase::IsSequential() const { return mKind && mKind->HasFlag('S'); }
bool iBase::IsIterative() const { return mKind && mKind->HasFlag('I'); }
bool iBase::RunsOnRefresh() const { return mKind && mKind->HasFlag('V'); }
bool iBase::ResetsOnChange() const { return mKind && mKind->HasFlag('R'); }

void iBase::Rebind(host::BaseNode* node, Scene* scene) {
  mInterface.Bind(node);
  TakeRows();
  mName = node ? node->Name() : std::string();
  mScene = scene;
  mTime = scene ? &scene->mTime : nullptr;
}

void iBase::TakeRows() {
  mRows = !Node() ? nullptr : Node()->Table() ? Node()->Table() : &CommonParameters();
}

void iBase::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) {
  constexpr double huge = std::numeric_limits<double>::max();
  Vec3d from{huge, huge, huge}, to{-huge, -huge, -huge};
  ExpandBounds(from, to);
  if (!BoxesMeet(from, to, low, high)) return;
  min = Min(min, from);
  max = Max(max, to);
}

void iBase::Release(bool) { SetFlag(FLAG_ACTIVE, false); }

bool iBase::ReadParameters() {
  if (!mInterface.HasNode()) return false;
  TakeRows();
  host::FillMembers(*mRows, Node(), *this);
  if (mKind) mPriority = mKind->priority.value_or(0);
  if (mOwnStage >= 1) {
    mStageMask = StageBit(mOwnStage & 31);
    if (mOwnPriority != 0) mPriority = mOwnPriority;
  } else {
    constexpr i64 most = std::numeric_limits<i32>::max();
    mPriority = static_cast<i32>(std::clamp(i64{mPriority} + mOwnPriority, -most, most));
  }
  SetFlag(FLAG_GROUP_BREAK, mGroupBreak);
  return true;
}

bool iBase::ResolveLinks() {
  if (!mInterface.HasNode()) return false;
  TakeRows();
  if (mScene) host::ConnectLinks(*mRows, *Node(), *this, *mScene);
  return true;
}

void iBase::ClearLinks() {
  if (mRows) host::ClearLinks(*mRows, *this);
  SetFlag(FLAG_DIRTY_CHECKED, false);
}

const host::ParameterTable& iBase::CommonParameters() {
  using namespace host;
  static const ParameterTable table = [] {
    ParameterRow constraints =
        LinksRow(common_row::kConstraints, "constraints",
                 "where, and how strongly, the node works: every one that is named weakens it "
                 "outside of its own region",
                 {});
    constraints.connect = [](ParameterHolder& holder, std::span<const LinkTarget> targets) {
      iBase* object = dynamic_cast<iBase*>(&holder);
      if (ConstraintList* list = object ? object->Constraints() : nullptr)
        ConnectConstraints(*list, targets);
    };
    return ParameterTable{
        constraints.AcceptsAny({kListAuxiliary, kCategoryConstraint}),
        LongRow(common_row::kClassOption, "class_option", 0, "",
                "kept with the node; nothing reads it")
            .Kept(),
        LongRow(common_row::kStage, "stage", 0, "",
                "moves the node to another stage of the step; 0 keeps its own")
            .Range(0, 25)
            .To(&iBase::mOwnStage),
        LongRow(common_row::kPriority, "priority", 0, "",
                "lower runs earlier: added to the place of its kind in a stage; with 'stage' given "
                "the place itself, and 0 keeps that of the kind")
            .To(&iBase::mOwnPriority),
        BoolRow(common_row::kGroupBreak, "group_break", true,
                "others in its stage wait until it is done")
            .To(&iBase::mGroupBreak),
    };
  }();
  return table;
}

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
  archive(mFlags, mDirtyStamp, mStageMask, mPriority, mRuns);
  for (const auto& part : mParts) part->Persist(archive);
  if (ConstraintList* list = mScene ? Constraints() : nullptr)
    PersistConstraints(*list, archive, *mScene);
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
