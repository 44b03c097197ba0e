#include "fluids/fields/emission_handlers.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// A position that is meant to be a sample's is one: rounding must not spill over to a side.
Vec3d Snapped(Vec3d c) {
  for (int a = 0; a < 3; ++a) {
    const double whole = std::round(c[a]);
    if (std::abs(c[a] - whole) < 1e-9) c[a] = whole;
  }
  return c;
}

template <class G>
void SplatOwned(G& g, double value, const Vec3d& position, i32 mode, const LayerOwner& owner) {
  const Vec3d c = Snapped(g.ToSamples(position));
  const i32 layer = g.mLayout.originCell.z + LinearStencil(c.z, g.mNz).index;
  const auto operation =
      mode == static_cast<i32>(EmissionMode::Set) ? SplatOperation::Assign : SplatOperation::Add;
  Splat(g, value, c, operation, owner.Owns(layer), owner.Owns(layer + 1));
}

/// Combines `value` with the sample at `index` and limits the result to the value range.
template <class G>
void Combine(G& g, i32 index, double value, i32 mode, double limit) {
  if (index < 0 || index >= g.mCount) return;
  double sample = g[index];
  switch (static_cast<EmissionMode>(mode)) {
    case EmissionMode::Add: sample += value; break;
    case EmissionMode::Set: sample = value; break;
    case EmissionMode::AddToLimit: sample = std::min(sample + value, limit); break;
    default: break;
  }
  sample = std::max(sample, g.mRangeMin);
  sample = std::min(sample, g.mRangeMax);
  g[index] = static_cast<std::remove_reference_t<decltype(g[index])>>(sample);
}

/// The index of the cell of `c`, given in cells of the grid; -1 outside.
template <class G>
i32 CellIndex(const G& g, const Vec3d& c) {
  const VecInt3D cell = TruncateNudged(c);
  const bool inside = cell.x >= 0 && cell.y >= 0 && cell.z >= 0 && cell.x < g.mNx &&
                      cell.y < g.mNy && cell.z < g.mNz;
  return inside ? g.Index(cell.x, cell.y, cell.z) : -1;
}

}  // namespace

template <class T, class G>
void ScalarEmissionHandler<T, G>::Emit(const T& value, const Vec3d& position,
                                       const EmissionWrite& write, const std::vector<i32>& indices,
                                       const LayerOwner& owner) {
  G* g = this->mChannel ? this->mChannel->GetGridForWrite(0) : nullptr;
  if (!g || !g->mData) return;
  if (write.splat) return SplatOwned(*g, value, position, write.mode, owner);
  const i32 index = indices.empty() ? CellIndex(*g, g->mLayout.ToCells(position)) : indices.front();
  Combine(*g, index, value, write.mode, write.hasLimit ? write.limit : g->mRangeMax);
}

template <class T, class G>
void ScalarEmissionHandler<T, G>::EmitRow(const T* values, const Vec3d* positions, i32 count,
                                          const EmissionWrite& write, const LayerOwner& owner) {
  for (i32 i = 0; i < count; ++i)
    ScalarEmissionHandler::Emit(values[i], positions[i], write, {}, owner);
}

template <class T, class G>
void VectorEmissionHandler<T, G>::EmitRow(const T* values, const Vec3d* positions, i32 count,
                                          const EmissionWrite& write, const LayerOwner& owner) {
  for (i32 i = 0; i < count; ++i)
    VectorEmissionHandler::Emit(values[i], positions[i], write, {}, owner);
}

template <class T, class G>
void VectorEmissionHandler<T, G>::Emit(const T& value, const Vec3d& position,
                                       const EmissionWrite& write, const std::vector<i32>& indices,
                                       const LayerOwner& owner) {
  for (i32 i = 0; i < 3; ++i) {
    G* g = this->mChannel ? this->mChannel->GetGridForWrite(i) : nullptr;
    if (!g || !g->mData) return;
    if (write.splat) {
      SplatOwned(*g, value[i], position, write.mode, owner);
      continue;
    }
    if (!indices.empty() && i >= static_cast<i32>(indices.size())) return;
    const i32 index = indices.empty() ? CellIndex(*g, g->ToSamples(position)) : indices[i];
    Combine(*g, index, value[i], write.mode, write.hasLimit ? write.vectorLimit[i] : g->mRangeMax);
  }
}

template class ScalarEmissionHandler<double, EGrid<double>>;
template class ScalarEmissionHandler<float, EGrid<float>>;
template class FireEmissionHandler<double, EGrid<double>>;
template class VectorEmissionHandler<Vec3d, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
