#include "fluids/fields/adaptive_container.h"
#include "fluids/fields/channel.h"
#include "fluids/fields/channel_copies.h"
#include "fluids/fields/emission_handlers.h"
#include "fluids/fields/field_rows.h"
#include "framework/node_kind.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
template <class G>
Vec3d SampleThree(const std::array<std::unique_ptr<G>, 3>& grids, const Vec3d& c, i32 mode,
                  const MonotonicStencil* stencil) {
  if (!grids[2]) return {};
  return {SampleGrid(grids[0].get(), c, mode, stencil),
          SampleGrid(grids[1].get(), c, mode, stencil),
          SampleGrid(grids[2].get(), c, mode, stencil)};
}
}  // namespace

// ---- ChannelBase_Vector -------------------------------------------------------------------------

template <class T, class G>
bool ChannelBase_Vector<T, G>::ReadParameters() {
  if (!Channel_Dynamic<T, G>::ReadParameters()) return false;
  return true;
}

template <class T, class G>
void ChannelBase_Vector<T, G>::Reset() {
  Channel_Dynamic<T, G>::Reset();
  for (i32 i = 0; i < 3; ++i) ResetGrid(mGrids[i], mInitial[i]);
}

template <class T, class G>
void ChannelBase_Vector<T, G>::Release(bool full) {
  if (!full) return;
  Channel_Dynamic<T, G>::Release(true);
  for (auto& grid : mGrids) grid.reset();
}

template <class T, class G>
bool ChannelBase_Vector<T, G>::ApplyBounds(const Vec3d& min, const Vec3d& max) {
  const GridLayout& domain = this->GetDomain();
  const ContainerShape shape(domain, min, max);
  for (i32 i = 0; i < 3; ++i) {
    const ContainerContent content{KindOf(i), mValueMin[i], mValueMax[i], mInitial[i],
                                   this->ClearsNow()};
    RefillTrimmed(shape, content, mGrids[i].get());
    if (!FitContainer(mGrids[i], domain, shape, content))
      return this->Deactivate("its grids do not fit into memory or are thinner than two cells");
  }
  this->SetFlag(FLAG_ACTIVE, true);
  return true;
}

template <class T, class G>
void ChannelBase_Vector<T, G>::UpdateRange() {
  for (i32 i = 0; i < 3 && mGrids[i]; ++i)
    mGrids[i]->UpdateActive(mValueMin[i], mValueMax[i], true);
}

template <class T, class G>
void ChannelBase_Vector<T, G>::Persist(StateArchive& archive) {
  Channel_Dynamic<T, G>::Persist(archive);
  archive(mGrids[0], mGrids[1], mGrids[2]);
}

template <class T, class G>
void ChannelBase_Vector<T, G>::SetToCoordinates() {
  for (i32 axis = 0; axis < 3; ++axis) {
    G* g = mGrids[axis].get();
    if (!g || !g->mData) return;
    const double step = g->mLayout.simCell[axis];
    for (i32 z = 0; z < g->mNz; ++z)
      for (i32 y = 0; y < g->mNy; ++y)
        for (i32 x = 0; x < g->mNx; ++x)
          (*g)(x, y, z) = ((axis == 0 ? x : axis == 1 ? y : z) + 0.5) * step;
    g->UpdateActive(mValueMin[axis], mValueMax[axis], false);
  }
}

template <class T, class G>
Vec3d ChannelBase_Vector<T, G>::SampleAt(const Vec3d& p) const {
  return mGrids[0] ? Sample(mGrids[0]->mLayout.ToCells(p), SAMPLE_LINEAR) : Vec3d{};
}

template <class T, class G>
Vec3d ChannelBase_Vector<T, G>::Sample(double x, double y, double z, i32 mode,
                                       const MonotonicStencil* stencil) const {
  return SampleThree(mGrids, {x, y, z}, mode, stencil);
}

// ---- VectorGridChannel --------------------------------------------------------------------------

template <class T, class G>
VectorGridChannel<T, G>::VectorGridChannel() {
  VectorGridChannel::CreateEmissionHandler();
}

template <class T, class G>
VectorGridChannel<T, G>::VectorGridChannel(BaseNode* node, Scene* scene)
    : ChannelBase_Vector<T, G>(node, scene) {
  VectorGridChannel::CreateEmissionHandler();
}

template <class T, class G>
const NodeKind& VectorGridChannel<T, G>::Kind() {
  static const NodeKind kind = {
      .id = 1300030,
      .type = "channel_vector",
      .label = "Vector",
      .className = "VectorGridChannel",
      .typeId = kTypeVectorChannel,
      .list = kListChannels,
      .categories = kCategoryGrid | kCategoryVector,
      .flags = "R",
      .menu = {"Grids"},
      .purpose = "a field of vectors that the gas carries, such as the colour of smoke",
      .example =
          {{example::kBall},
           {R"({ "type": "channel_vector", "name": "colour" })",
            R"({ "type": "emission_setting", "name": "red", "parameters": { "vector_amount": [3, 0.2, 0.1] } })",
            R"({ "type": "channelsettings", "name": "paint", "parameters": { "channel": "colour", "settings": "red" } })",
            example::kBallMesh, example::kBallVolume,
            R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["paint"] } })"}},
      .rows = Parameters,
      .make = MakeNode<VectorGridChannel>,
  };
  return kind;
}

template <class T, class G>
const ParameterTable& VectorGridChannel<T, G>::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = {
        VectorRow(field_row::kValueMin, "value_min", {0, 0, 0}, "field",
                  "a floor for each component; channel operators may give less")
            .To(&VectorGridChannel::mValueMin),
        VectorRow(field_row::kValueMax, "value_max", {1, 1, 1}, "field",
                  "a ceiling for each component; channel operators may give more")
            .To(&VectorGridChannel::mValueMax),
        VectorRow(field_row::kInitialValue, "initial_value", {0, 0, 0}, "field",
                  "what the air holds where nothing has arrived yet")
            .To(&VectorGridChannel::mInitial),
        BoolRow(field_row::kTextureCoordinates, "texture_coordinates", false,
                "starts as a map of places, so that a texture is carried along with the smoke")
            .To(&VectorGridChannel::mTextureCoordinates),
    };
    for (ParameterRow& row : (Channel_Dynamic<T, G>::Rows())) rows.push_back(std::move(row));
    return rows;
  }();
  return table;
}

template <class T, class G>
bool VectorGridChannel<T, G>::ReadParameters() {
  if (!ChannelBase_Vector<T, G>::ReadParameters()) return false;
  return true;
}

template <class T, class G>
void VectorGridChannel<T, G>::CreateEmissionHandler() {
  this->mEmissionHandler = std::make_unique<VectorEmissionHandler<T, G>>(this);
}

template <class T, class G>
void VectorGridChannel<T, G>::Reset() {
  ChannelBase_Vector<T, G>::Reset();
  for (i32 i = 0; i < 3; ++i) ResetGrid(mPrevious[i], this->mInitial[i]);
  mFresh = true;
}

template <class T, class G>
void VectorGridChannel<T, G>::Release(bool full) {
  ChannelBase_Vector<T, G>::Release(full);
  for (auto& grid : mPrevious) grid.reset();
  if (full) mFresh = true;
}

template <class T, class G>
bool VectorGridChannel<T, G>::ApplyBounds(const Vec3d& min, const Vec3d& max) {
  if (!ChannelBase_Vector<T, G>::ApplyBounds(min, max)) return false;
  for (i32 i = 0; i < 3; ++i) {
    if (!this->mKeepPrevious) {
      mPrevious[i].reset();
    } else if (!FitPrevious(mPrevious[i], *this->mGrids[i], this->mInitial[i])) {
      return this->Deactivate("its second buffer does not fit into memory");
    }
  }
  if (mTextureCoordinates && mFresh) SetToCoordinates();
  mFresh = false;
  return true;
}

template <class T, class G>
void VectorGridChannel<T, G>::SetToCoordinates() {
  ChannelBase_Vector<T, G>::SetToCoordinates();
  for (i32 i = 0; i < 3; ++i)
    if (mPrevious[i] && this->mGrids[i]) mPrevious[i] = CopyOf(this->mGrids[i]);
}

template <class T, class G>
void VectorGridChannel<T, G>::Persist(StateArchive& archive) {
  ChannelBase_Vector<T, G>::Persist(archive);
  archive(mPrevious[0], mPrevious[1], mPrevious[2], mFresh);
}

template <class T, class G>
void VectorGridChannel<T, G>::SwapBuffers() {
  if (!this->mKeepPrevious) return;
  for (i32 i = 0; i < 3; ++i)
    if (mPrevious[i] && this->mGrids[i]) this->mGrids[i]->Swap(*mPrevious[i]);
}

template <class T, class G>
Vec3d VectorGridChannel<T, G>::SamplePrevious(double x, double y, double z, i32 mode,
                                              const MonotonicStencil* stencil) const {
  return SampleThree(mPrevious, {x, y, z}, mode, stencil);
}

// ---- VelocityGridChannel ------------------------------------------------------------------------

template <class T, class G>
VelocityGridChannel<T, G>::VelocityGridChannel() {
  this->SetUnbounded();
}

// The components are staggered: a stencil made for one position fits none of them.
template <class T, class G>
Vec3d VelocityGridChannel<T, G>::Sample(double x, double y, double z, i32 mode,
                                        const MonotonicStencil*) const {
  return SampleThree(this->mGrids, {x, y, z}, mode, nullptr);
}

template <class T, class G>
Vec3d VelocityGridChannel<T, G>::SamplePrevious(double x, double y, double z, i32 mode,
                                                const MonotonicStencil*) const {
  return SampleThree(this->mPrevious, {x, y, z}, mode, nullptr);
}

template class ChannelBase_Vector<Vec3d, EGrid<double>>;
template class VectorGridChannel<Vec3d, EGrid<double>>;
template class VelocityGridChannel<Vec3d, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
