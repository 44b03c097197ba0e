#include <optional>

#include "fluids/fields/adaptive_container.h"
#include "fluids/fields/channel.h"
#include "fluids/fields/channel_copies.h"
#include "fluids/fields/emission_handlers.h"
#include "fluids/fields/field_rows.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

// ---- ChannelBase_Scalar -------------------------------------------------------------------------

template <class T, class G>
ParameterTable ChannelBase_Scalar<T, G>::Rows(double valueMax) {
  ParameterTable table = {
      RealRow(field_row::kValueMin, "value_min", 0.0, "field",
              "a floor for sources and operators; channel operators may give less")
          .To(&ChannelBase_Scalar::mValueMin),
      RealRow(field_row::kValueMax, "value_max", valueMax, "field",
              "how thick sources and operators can make smoke, or how hot fire, at least 0.0001 "
              "above value_min; channel operators may give more")
          .To(&ChannelBase_Scalar::mValueMax),
      RealRow(field_row::kInitialValue, "initial_value", 0.0, "field",
              "what the air holds where nothing has arrived yet")
          .To(&ChannelBase_Scalar::mInitial),
  };
  for (ParameterRow& row : (Channel_Dynamic<T, G>::Rows())) table.push_back(std::move(row));
  return table;
}

template <class T, class G>
bool ChannelBase_Scalar<T, G>::ReadParameters() {
  if (!Channel_Dynamic<T, G>::ReadParameters()) return false;
  mValueMax = std::max(mValueMax, mValueMin + 0.0001);
  return true;
}

template <class T, class G>
void ChannelBase_Scalar<T, G>::Reset() {
  Channel_Dynamic<T, G>::Reset();
  ResetGrid(mGrid, mInitial);
}

template <class T, class G>
void ChannelBase_Scalar<T, G>::Release(bool full) {
  if (!full) return;
  Channel_Dynamic<T, G>::Release(true);
  mGrid.reset();
}

template <class T, class G>
bool ChannelBase_Scalar<T, G>::ApplyBounds(const Vec3d& min, const Vec3d& max) {
  const GridLayout& domain = this->GetDomain();
  const ContainerShape shape(domain, min, max);
  const ContainerContent content{this->mKind, mValueMin, mValueMax, mInitial, this->ClearsNow()};
  RefillTrimmed(shape, content, mGrid.get());
  if (!FitContainer(mGrid, domain, shape, content))
    return this->Deactivate("its grid does not fit into memory or is thinner than two cells");
  this->SetFlag(FLAG_ACTIVE, true);
  return true;
}

template <class T, class G>
void ChannelBase_Scalar<T, G>::UpdateRange() {
  if (mGrid) mGrid->UpdateActive(mValueMin, mValueMax, true);
}

template <class T, class G>
void ChannelBase_Scalar<T, G>::Persist(StateArchive& archive) {
  Channel_Dynamic<T, G>::Persist(archive);
  archive(mGrid);
}

template <class T, class G>
bool ChannelBase_Scalar<T, G>::Allocate(const G* layout, i32 kind, double initial) {
  mInitial = initial;
  if (!layout) return this->Deactivate("its grid has no place");
  this->mKind = kind;
  if (!mGrid || mGrid->mKind != kind || !mGrid->mLayout.Equals(layout->mLayout)) {
    mGrid = std::make_unique<G>(layout->mLayout, kind);
    if (!mGrid->mData) {
      mGrid.reset();
      return this->Deactivate("its grid does not fit into memory");
    }
  }
  mGrid->mRangeMin = mValueMin;
  mGrid->mRangeMax = mValueMax;
  ResetGrid(mGrid, mInitial);
  this->SetFlag(FLAG_ACTIVE, true);
  return true;
}

template <class T, class G>
double ChannelBase_Scalar<T, G>::SampleAt(const Vec3d& p) const {
  return mGrid ? Sample(mGrid->mLayout.ToCells(p), SAMPLE_LINEAR) : 0.0;
}

template <class T, class G>
double ChannelBase_Scalar<T, G>::Sample(double x, double y, double z, i32 mode,
                                        const MonotonicStencil* stencil) const {
  return SampleGrid(mGrid.get(), {x, y, z}, mode, stencil);
}

// ---- ScalarGridChannel --------------------------------------------------------------------------

template <class T, class G>
ScalarGridChannel<T, G>::ScalarGridChannel() {
  ScalarGridChannel::CreateEmissionHandler();
}

template <class T, class G>
ScalarGridChannel<T, G>::ScalarGridChannel(BaseNode* node, Scene* scene)
    : ChannelBase_Scalar<T, G>(node, scene) {
  ScalarGridChannel::CreateEmissionHandler();
}

template <class T, class G>
void ScalarGridChannel<T, G>::CreateEmissionHandler() {
  this->mEmissionHandler = std::make_unique<ScalarEmissionHandler<T, G>>(this);
}

template <class T, class G>
void ScalarGridChannel<T, G>::Reset() {
  ChannelBase_Scalar<T, G>::Reset();
  ResetGrid(mPrevious, this->mInitial);
  mAccount = {};
  mIsFed = false;
  BookWork();
}

template <class T, class G>
void ScalarGridChannel<T, G>::Release(bool full) {
  ChannelBase_Scalar<T, G>::Release(full);
  mPrevious.reset();
  if (full) mAccount.mLedger.trimmed += mAccount.Close();
}

template <class T, class G>
bool ScalarGridChannel<T, G>::ApplyBounds(const Vec3d& min, const Vec3d& max) {
  const std::optional<GridLayout> before =
      this->mGrid ? std::optional(this->mGrid->mLayout) : std::nullopt;
  if (!ChannelBase_Scalar<T, G>::ApplyBounds(min, max)) return false;
  if (!before || this->ClearsNow())
    BookWork();
  else if (!before->Equals(this->mGrid->mLayout))
    BookMovedSides();
  if (!this->mKeepPrevious) {
    Release(false);
  } else if (!FitPrevious(mPrevious, *this->mGrid, this->mInitial)) {
    return this->Deactivate("its second buffer does not fit into memory");
  }
  return true;
}

/// New cells hold what the field starts with; what old ones held stays behind.
template <class T, class G>
void ScalarGridChannel<T, G>::BookMovedSides() {
  const double change = LookAtTotal();
  if (change > 0)
    mAccount.AddWork(change);
  else
    mAccount.mLedger.left -= change;
}

template <class T, class G>
void ScalarGridChannel<T, G>::UpdateRange() {
  SettleEmission();
  BookWork();
  ChannelBase_Scalar<T, G>::UpdateRange();
  mAccount.mLedger.trimmed -= LookAtTotal();
}

template <class T, class G>
bool ScalarGridChannel<T, G>::IsAccounted() const {
  const NodeKind* kind = this->GetKind();
  return kind && kind->HasFlag('A') && this->mScene && this->mGrid && this->mGrid->mData;
}

template <class T, class G>
double ScalarGridChannel<T, G>::LookAtTotal() {
  return IsAccounted() ? mAccount.Look(*this->mGrid, this->mScene->mThreadCount) : 0.0;
}

template <class T, class G>
void ScalarGridChannel<T, G>::Persist(StateArchive& archive) {
  ChannelBase_Scalar<T, G>::Persist(archive);
  archive(mPrevious);
  mAccount.Persist(archive);
}

template <class T, class G>
void ScalarGridChannel<T, G>::SwapBuffers() {
  if (mPrevious && this->mGrid && this->mKeepPrevious) this->mGrid->Swap(*mPrevious);
}

template <class T, class G>
double ScalarGridChannel<T, G>::SamplePrevious(double x, double y, double z, i32 mode,
                                               const MonotonicStencil* stencil) const {
  return SampleGrid(mPrevious.get(), {x, y, z}, mode, stencil);
}

template class ChannelBase_Scalar<double, EGrid<double>>;
template class ChannelBase_Scalar<float, EGrid<float>>;
template class ScalarGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
