// Channels: named fields of the scene with a value range and a container that follows the data.
#pragma once
#include <array>
#include <limits>
#include <memory>

#include "fluids/fields/emission_handler.h"
#include "fluids/fields/field_ledger.h"
#include "framework/cached_grids.h"
#include "framework/iobject.h"
#include "grids/egrid.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// End of a value range that bounds nothing.
inline constexpr double kUnbounded = std::numeric_limits<double>::max();

/// Root of all channels; `T` is the value, double, float or Vec3d.
template <class T>
class iChannel : public iObject {
 public:
  using iObject::iObject;
  /// A channel that no node stands for tells what it is itself.
  i32 GetTypeId() const override { return GetKind() ? iBase::GetTypeId() : OwnTypeId(); }
  virtual i32 OwnTypeId() const { return kTypeChannel; }
  i32 GetListIndex() const override { return kListChannels; }
  void GetCategories(u32& mask) const override { mask |= kCategoryGrid; }
  bool ResetsOnChange() const override { return true; }

  /// Replaces the emission handler by a new one of the channel's kind.
  virtual void CreateEmissionHandler() {}
  /// `p` (simulation units) lies in the grid, with or without a margin of one cell; false without
  /// a grid.
  virtual bool ContainsPoint(const Vec3d& p, bool withMargin) const = 0;
  virtual bool ContainsCell(const Vec3d& p, bool excludeBorder) const = 0;
};

/// What all channels with grids share. `G` is the grid, `EGrid<double>` or `EGrid<float>`.
template <class T, class G>
class Channel_Dynamic : public iChannel<T>, public CachedGrids {
 public:
  using iChannel<T>::iChannel;
  Channel_Dynamic() = default;
  i32 OwnTypeId() const override { return kTypeDynamicChannel; }
  /// What every channel can be told: buffers, bounds and the viewport display.
  static host::ParameterTable Rows();
  bool ReadParameters() override;

  /// Component `i`: a scalar channel has component 0 alone. Null without a grid.
  virtual G* GetGrid(i32 i) const = 0;
  /// The buffer to write; the same grid.
  virtual G* GetGridForWrite(i32 i) const { return GetGrid(i); }
  std::array<EGrid<double>*, 3> GetCachedGrids() override;
  i32 CachedKind() const override { return mKind; }
  bool TakeCachedPlace(const GridLayout& layout, i32 kind) override;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  void ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) override;
  bool ContainsPoint(const Vec3d& p, bool withMargin) const override;
  bool ContainsCell(const Vec3d& p, bool excludeBorder) const override;

  std::unique_ptr<iEmissionHandler<T>> mEmissionHandler;
  bool mWidensBounds = true;
  bool mClearEachFrame = false;  ///< back to the initial value in every `ApplyBounds`
  i32 mKind = kCentre;           ///< kind of the grid's samples
  bool mKeepPrevious = true;     ///< keeps a second buffer

 protected:
  /// The box (simulation units) of the last cache frame while a cache feeds the channel, whose
  /// grids hold the frame before; false while none does.
  bool GetCachedBox(Vec3d& min, Vec3d& max) const;
  /// `ApplyBounds` clears the data. Those of a cache come once a frame, and stay in all its steps.
  bool ClearsNow() const { return mClearEachFrame && !this->Has(FLAG_CACHED); }

 private:
  bool mHasCachedLayout = false;
  GridLayout mCachedLayout;  ///< of the last cache frame
};

/// A scalar field in one grid.
template <class T, class G>
class ChannelBase_Scalar : public Channel_Dynamic<T, G> {
 public:
  using Channel_Dynamic<T, G>::Channel_Dynamic;
  ChannelBase_Scalar() = default;
  i32 OwnTypeId() const override { return kTypeScalarChannel; }
  void GetCategories(u32& mask) const override { mask |= kCategoryGrid | kCategoryScalar; }
  /// Two buffers, and a third while they are resized.
  double MemoryPerCell() const override { return 3 * sizeof(T); }
  /// The range of values, followed by what every channel can be told.
  static host::ParameterTable Rows(double valueMax);
  bool ReadParameters() override;
  void Reset() override;
  void Release(bool full) override;
  /// The adaptive container: resizes the grid to the box, a whole number of cells, keeping the data
  /// in place; cells outside the old box hold the initial value.
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override;
  void UpdateRange() override;
  void Persist(StateArchive& archive) override;

  G* GetGrid(i32 i) const override { return i == 0 ? mGrid.get() : nullptr; }
  /// Refuses the grids of a staggered field.
  bool TakeCachedPlace(const GridLayout& layout, i32 kind) override {
    return kind != kFaceX && Channel_Dynamic<T, G>::TakeCachedPlace(layout, kind);
  }
  /// A grid of the layout of `layout`, filled with `initial`; false and inactive on failure.
  virtual bool Allocate(const G* layout, i32 kind, double initial);
  /// Linear sample at a position in simulation units; 0 without a grid.
  virtual double SampleAt(const Vec3d& p) const;
  /// Sample at a position in cells of the layout, with the offset of the kind taken off here.
  virtual double Sample(double x, double y, double z, i32 mode,
                        const MonotonicStencil* stencil = nullptr) const;
  double Sample(const Vec3d& c, i32 mode, const MonotonicStencil* stencil = nullptr) const {
    return Sample(c.x, c.y, c.z, mode, stencil);
  }
  /// The value range of an embedded channel, which reads no parameters.
  void SetRange(double min, double max) { mValueMin = min, mValueMax = max; }
  void SetUnbounded() { SetRange(-kUnbounded, kUnbounded); }

  std::unique_ptr<G> mGrid;
  double mValueMin = 0;
  double mValueMax = 1;
  double mInitial = 0;
};

/// A scalar field with a second buffer of the same layout.
template <class T, class G>
class ScalarGridChannel : public ChannelBase_Scalar<T, G> {
 public:
  ScalarGridChannel();
  ScalarGridChannel(host::BaseNode* node, Scene* scene);
  void CreateEmissionHandler() override;
  void Reset() override;
  void Release(bool full) override;
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override;
  void UpdateRange() override;
  void Persist(StateArchive& archive) override;

  /// Whether the field holds an amount of something, by its kind, and lives in this scene.
  bool IsAccounted() const;
  /// What the total has changed by since the last look; 0 without an account.
  double LookAtTotal();
  /// Books what has changed since the last look to emitters, or to operators.
  void BookEmission() {
    mIsFed = false;
    mAccount.AddEmission(LookAtTotal());
  }
  void BookWork() { mAccount.AddWork(LookAtTotal()); }
  /// An emitter has filled it. One look serves all emitters: whoever changes the field next has
  /// their part settled before.
  void NoteEmission() { mIsFed = true; }
  void SettleEmission() {
    if (mIsFed) BookEmission();
  }

  /// Swaps the data of the two buffers, if there are two.
  virtual void SwapBuffers();
  virtual double SamplePrevious(double x, double y, double z, i32 mode,
                                const MonotonicStencil* stencil = nullptr) const;
  double SamplePrevious(const Vec3d& c, i32 mode, const MonotonicStencil* stencil = nullptr) const {
    return SamplePrevious(c.x, c.y, c.z, mode, stencil);
  }

  std::unique_ptr<G> mPrevious;
  FieldAccount mAccount;

 private:
  void BookMovedSides();

  bool mIsFed = false;  ///< by emitters, since the last look
};

/// A vector field in three component grids.
template <class T, class G>
class ChannelBase_Vector : public Channel_Dynamic<T, G> {
 public:
  using Channel_Dynamic<T, G>::Channel_Dynamic;
  ChannelBase_Vector() = default;
  i32 OwnTypeId() const override { return kTypeVectorChannel; }
  void GetCategories(u32& mask) const override { mask |= kCategoryGrid | kCategoryVector; }
  /// Two buffers of three components, and one more while they are resized.
  double MemoryPerCell() const override { return 7 * sizeof(double); }
  bool ReadParameters() override;
  void Reset() override;
  void Release(bool full) override;
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override;
  void UpdateRange() override;
  void Persist(StateArchive& archive) override;

  G* GetGrid(i32 i) const override { return i >= 0 && i < 3 ? mGrids[i].get() : nullptr; }
  /// Every cell takes the position of its centre: a field of texture coordinates.
  virtual void SetToCoordinates();
  virtual Vec3d SampleAt(const Vec3d& p) const;
  virtual Vec3d Sample(double x, double y, double z, i32 mode,
                       const MonotonicStencil* stencil = nullptr) const;
  Vec3d Sample(const Vec3d& c, i32 mode, const MonotonicStencil* stencil = nullptr) const {
    return Sample(c.x, c.y, c.z, mode, stencil);
  }

  void SetRange(const Vec3d& min, const Vec3d& max) { mValueMin = min, mValueMax = max; }
  void SetUnbounded() {
    SetRange({-kUnbounded, -kUnbounded, -kUnbounded}, {kUnbounded, kUnbounded, kUnbounded});
  }

  std::array<std::unique_ptr<G>, 3> mGrids;
  Vec3d mValueMin{};
  Vec3d mValueMax{1, 1, 1};
  Vec3d mInitial{};

 protected:
  /// Kind of component `i`; a staggered field has a kind per component.
  virtual i32 KindOf(i32 /*i*/) const { return this->mKind; }
};

/// A vector field with a second buffer.
template <class T, class G>
class VectorGridChannel : public ChannelBase_Vector<T, G> {
 public:
  VectorGridChannel();
  VectorGridChannel(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool ReadParameters() override;
  void CreateEmissionHandler() override;
  void Reset() override;
  void Release(bool full) override;
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override;
  void SetToCoordinates() override;
  void Persist(StateArchive& archive) override;

  virtual void SwapBuffers();
  virtual Vec3d SamplePrevious(double x, double y, double z, i32 mode,
                               const MonotonicStencil* stencil = nullptr) const;

  Vec3d SamplePrevious(const Vec3d& c, i32 mode, const MonotonicStencil* stencil = nullptr) const {
    return SamplePrevious(c.x, c.y, c.z, mode, stencil);
  }

  std::array<std::unique_ptr<G>, 3> mPrevious;
  bool mTextureCoordinates = false;  ///< starts every simulation as a field of coordinates

 private:
  bool mFresh = true;  ///< no step has been taken since the start of the simulation
};

/// A velocity field on faces: u at x faces, v at y faces, w at z faces. Embedded in a solver.
template <class T, class G>
class VelocityGridChannel : public VectorGridChannel<T, G> {
 public:
  VelocityGridChannel();
  i32 OwnTypeId() const override { return kTypeVelocityChannel; }
  Vec3d Sample(double x, double y, double z, i32 mode,
               const MonotonicStencil* stencil = nullptr) const override;
  using ChannelBase_Vector<T, G>::Sample;
  Vec3d SamplePrevious(double x, double y, double z, i32 mode,
                       const MonotonicStencil* stencil = nullptr) const override;
  using VectorGridChannel<T, G>::SamplePrevious;

 protected:
  i32 KindOf(i32 i) const override { return i; }
};

using ScalarField = ScalarGridChannel<double, EGrid<double>>;
using VectorField = VectorGridChannel<Vec3d, EGrid<double>>;
using VelocityField = VelocityGridChannel<Vec3d, EGrid<double>>;
using LevelField = ChannelBase_Scalar<double, EGrid<double>>;
using FractionField = ChannelBase_Scalar<float, EGrid<float>>;

extern template class Channel_Dynamic<double, EGrid<double>>;
extern template class Channel_Dynamic<float, EGrid<float>>;
extern template class Channel_Dynamic<Vec3d, EGrid<double>>;
extern template class ChannelBase_Scalar<double, EGrid<double>>;
extern template class ChannelBase_Scalar<float, EGrid<float>>;
extern template class ScalarGridChannel<double, EGrid<double>>;
extern template class ChannelBase_Vector<Vec3d, EGrid<double>>;
extern template class VectorGridChannel<Vec3d, EGrid<double>>;
extern template class VelocityGridChannel<Vec3d, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
