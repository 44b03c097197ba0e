#include "io/png_preview.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "grids/for_each_cell.h"
#include "grids/sampling.h"
#include "io/fire_light.h"
#include "io/preview_film.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

constexpr i32 kLongSide = 512;
/// Optical depth of smoke at full density across the long side of the box.
constexpr double kFullDepth = 32;
constexpr double kShadow = 0.5;  ///< how much of its depth smoke casts as shadow
constexpr double kGlow = 3;      ///< brightness of fire across the long side
constexpr float kLit = 0.06f;    ///< how much of a fire's light things round it catch

constexpr Colour kSky{0.085f, 0.115f, 0.175f};  ///< light from all sides, under the cold sky
constexpr Colour kSun{1.00f, 0.94f, 0.84f};     ///< light from above

/// The axes of the picture in the box: `u` to the right, `v` up, `d` towards the eye.
struct Axes {
  int u, v, d;
  bool flipU, flipV;
};
Axes AxesOf(int axis) {
  if (axis == 0) return {2, 1, 0, true, false};
  if (axis == 1) return {0, 2, 1, false, true};
  return {0, 1, 2, false, false};
}

Colour Albedo(Palette palette) {
  switch (palette) {
    case Palette::Dust: return {0.80f, 0.66f, 0.50f};
    case Palette::Soot: return {0.22f, 0.205f, 0.20f};
    default: return {0.90f, 0.91f, 0.92f};
  }
}

/// A box of cells of the picture, upper corner exclusive.
struct Window {
  VecInt3D low{}, high{};
  bool IsEmpty() const { return low.x >= high.x || low.y >= high.y || low.z >= high.z; }
};

/// One slice across the direction of view.
struct Slice {
  std::vector<float> depth;    ///< optical depth of the slice
  std::vector<Colour> albedo;  ///< weighted by depth
  std::vector<Colour> glow;
};

/// A particle in the picture.
struct Disc {
  float u, v;    ///< in columns, from the lower left
  float radius;  ///< in columns
  Colour colour;
  float seen = 1;  ///< what the smoke before it lets through
};

/// Columns of cells along the view. A box of many cells is drawn in coarser ones, each the mean of
/// `mCoarse` cells on an axis.
class Drawing {
 public:
  explicit Drawing(const PreviewView& view)
      : mView(view), mAxes(AxesOf(view.axis)), mFire(MeasureCells()) {
    mColumns.resize(std::size_t{1} * Nu() * Nv());
    mLight.assign(mColumns.size(), 1.0f);
    mSlice.depth.resize(mColumns.size());
    mSlice.albedo.resize(mColumns.size());
    mSlice.glow.resize(mColumns.size());
    for (i32 i = 0; i <= kRampSteps; ++i) {
      mRamp.push_back(FireColour(static_cast<float>(i) / kRampSteps));
      for (float& c : mRamp.back()) c *= static_cast<float>(kGlow * PerCell());
    }
  }

  void Draw(const std::vector<PreviewLayer>& layers, const std::vector<PreviewSolid>& solids);
  /// Before `Draw`: what the smoke then hides in part.
  void Place(const PreviewDots& dots);
  Picture Develop() const;

 private:
  static constexpr i32 kMostCells = 768;  ///< on an axis
  static constexpr i32 kRampSteps = 256;

  /// Cells of the picture, as `mCells` as well.
  VecInt3D MeasureCells() {
    const Vec3d size = mView.max - mView.min;
    mLong = std::max({size.x, size.y, size.z});
    mCoarse = std::max(1, static_cast<i32>(std::ceil(mLong / mView.cell / kMostCells)));
    mCell = mView.cell * mCoarse;
    for (int a = 0; a < 3; ++a)
      mCells[a] = std::clamp(static_cast<i32>(std::ceil(size[a] / mCell - 1e-3)), 1, kMostCells);
    return mCells;
  }
  /// What a cell of the box counts across the long side, spread over a column of the picture.
  double PerCell() const { return mView.cell / mLong / (double{1} * mCoarse * mCoarse); }

  i32 Nu() const { return mCells[mAxes.u]; }
  i32 Nv() const { return mCells[mAxes.v]; }
  std::size_t ColumnAt(i32 u, i32 v) const { return std::size_t{1} * v * Nu() + u; }
  /// Column of a cell of the picture.
  std::size_t ColumnOf(const VecInt3D& cell) const {
    const i32 u = cell[mAxes.u], v = cell[mAxes.v];
    return ColumnAt(mAxes.flipU ? Nu() - 1 - u : u, mAxes.flipV ? Nv() - 1 - v : v);
  }
  /// Cell of the picture in a column of a slice.
  VecInt3D CellOf(i32 u, i32 v, i32 d) const {
    VecInt3D cell;
    cell[mAxes.u] = mAxes.flipU ? Nu() - 1 - u : u;
    cell[mAxes.v] = mAxes.flipV ? Nv() - 1 - v : v;
    cell[mAxes.d] = d;
    return cell;
  }
  /// Cell of the box, not coarsened, in which a grid's first sample lies.
  VecInt3D FirstCell(const GridLayout& layout) const {
    const Vec3d at = (layout.simOrigin - mView.min) / mView.cell;
    return {static_cast<i32>(std::lround(at.x)), static_cast<i32>(std::lround(at.y)),
            static_cast<i32>(std::lround(at.z))};
  }
  /// Cells of the picture that a grid covers.
  Window WindowOf(const GridLayout& layout) const {
    const VecInt3D first = FirstCell(layout), end = first + layout.dims;
    Window w;
    for (int a = 0; a < 3; ++a) {
      w.low[a] = std::max(first[a], 0) / mCoarse;
      w.high[a] = std::min((std::max(end[a], 0) + mCoarse - 1) / mCoarse, mCells[a]);
    }
    return w;
  }
  Window SliceOf(Window w, i32 d) const {
    w.low[mAxes.d] = std::max(w.low[mAxes.d], d);
    w.high[mAxes.d] = std::min(w.high[mAxes.d], d + 1);
    return w;
  }

  /// Light of the fire that a cell catches.
  Colour FireOn(const VecInt3D& cell) const {
    if (mFire.IsDark()) return {};
    Colour light = mFire.At(cell);
    for (float& c : light) c *= kLit;
    return light;
  }
  const Colour& GlowOf(float share) const {
    return mRamp[static_cast<std::size_t>(std::min(share, 1.0f) * kRampSteps + 0.5f)];
  }
  void Clear(const Window& window);
  /// Calls f(cell, share) for the cells of a window where a layer has something: the share of its
  /// full value, and the cell of the picture.
  template <class F>
  void ForEachShare(const PreviewLayer& layer, const Window& window, F&& f) const;
  void GatherFire(const std::vector<PreviewLayer>& layers);
  void AddLayer(const PreviewLayer& layer, const Window& window);
  void AddSolid(const PreviewSolid& solid, const Window& window);
  void Composite(const Window& window);
  void DrawDots(std::vector<Colour>& pixels, i32 width, i32 height) const;

  const PreviewView mView;
  const Axes mAxes;
  VecInt3D mCells{};
  i32 mCoarse = 1;
  double mCell = 1;
  double mLong = 1;
  std::vector<ViewColumn> mColumns;
  std::vector<float> mLight;
  Slice mSlice;
  std::vector<std::vector<Disc>> mDots;  ///< by slice
  std::vector<Colour> mRamp;  ///< light of a cell of the box by its share, in `kRampSteps`
  FireLight mFire;
};

void Drawing::Draw(const std::vector<PreviewLayer>& layers,
                   const std::vector<PreviewSolid>& solids) {
  GatherFire(layers);
  for (i32 d = mCells[mAxes.d] - 1; d >= 0; --d) {
    if (!mDots.empty())
      for (Disc& dot : mDots[d])
        dot.seen = mColumns[ColumnAt(static_cast<i32>(dot.u), static_cast<i32>(dot.v))].through;
    // Only what lies round the layers of this slice is cleared and summed up.
    Window smoke{mCells, {0, 0, 0}};
    for (const PreviewLayer& layer : layers) {
      const Window w = SliceOf(WindowOf(layer.grids[0]->mLayout), d);
      if (!w.IsEmpty()) smoke = {Min(smoke.low, w.low), Max(smoke.high, w.high)};
    }
    if (!smoke.IsEmpty()) Clear(smoke);
    for (const PreviewLayer& layer : layers)
      AddLayer(layer, SliceOf(WindowOf(layer.grids[0]->mLayout), d));
    for (const PreviewSolid& solid : solids)
      AddSolid(solid, SliceOf(WindowOf(solid.distance->mLayout), d));
    if (!smoke.IsEmpty()) Composite(smoke);
  }
}

void Drawing::Place(const PreviewDots& dots) {
  mDots.resize(mCells[mAxes.d]);
  const ParticleStore& particles = *dots.particles;
  const auto* radii = particles.Find<double>(property_id::kRadius);
  const auto* colours = particles.Find<Vec3d>(property_id::kColor);
  for (i32 row = 0; row < particles.Count(); ++row) {
    const Vec3d at = (particles.Positions()[row] - mView.min) / mCell;
    const double u = mAxes.flipU ? Nu() - at[mAxes.u] : at[mAxes.u];
    const double v = mAxes.flipV ? Nv() - at[mAxes.v] : at[mAxes.v];
    if (!(u >= 0 && u < Nu() && v >= 0 && v < Nv() && std::isfinite(at[mAxes.d]))) continue;
    const i32 slice = static_cast<i32>(std::clamp(at[mAxes.d], 0.0, mCells[mAxes.d] - 1.0));
    const Vec3d colour = colours ? colours->Get(row, dots.colour) : dots.colour;
    const double radius = radii ? radii->Get(row, 0.0) : 0.0;
    mDots[slice].push_back({static_cast<float>(u),
                            static_cast<float>(v),
                            static_cast<float>(radius / mCell),
                            {static_cast<float>(colour.x), static_cast<float>(colour.y),
                             static_cast<float>(colour.z)}});
  }
}

void Drawing::DrawDots(std::vector<Colour>& pixels, i32 width, i32 height) const {
  constexpr float kLeast = 0.75f;
  const float scale = static_cast<float>(width) / static_cast<float>(Nu());
  const auto draw = [&](const Disc& dot) {
    const float x = dot.u * scale, y = static_cast<float>(height) - dot.v * scale;
    const float radius = std::clamp(dot.radius * scale, kLeast, static_cast<float>(kLongSide));
    const i32 reach = static_cast<i32>(radius) + 1;
    const i32 px = static_cast<i32>(x), py = static_cast<i32>(y);
    for (i32 j = std::max(py - reach, 0); j <= std::min(py + reach, height - 1); ++j)
      for (i32 i = std::max(px - reach, 0); i <= std::min(px + reach, width - 1); ++i) {
        const float dx = static_cast<float>(i) + 0.5f - x, dy = static_cast<float>(j) + 0.5f - y;
        const float cover = std::clamp(radius + 0.5f - std::sqrt(dx * dx + dy * dy), 0.0f, 1.0f);
        Colour& pixel = pixels[std::size_t{1} * j * width + i];
        for (int c = 0; c < 3; ++c) pixel[c] += cover * dot.seen * (dot.colour[c] - pixel[c]);
      }
  };
  for (const std::vector<Disc>& slice : mDots)
    for (auto dot = slice.rbegin(); dot != slice.rend(); ++dot) draw(*dot);
}

void Drawing::Clear(const Window& w) {
  ForEachCell({w.low, w.high}, [&](i32 x, i32 y, i32 z) {
    const std::size_t column = ColumnOf({x, y, z});
    mSlice.depth[column] = 0;
    mSlice.albedo[column] = mSlice.glow[column] = {};
  });
}

template <class F>
void Drawing::ForEachShare(const PreviewLayer& layer, const Window& window, F&& f) const {
  if (window.IsEmpty()) return;
  const EGrid<double>& grid = *layer.grids[0];
  const VecInt3D first = FirstCell(grid.mLayout);
  const CellBox box = Clip({window.low * VecInt3D{mCoarse, mCoarse, mCoarse} - first,
                            window.high * VecInt3D{mCoarse, mCoarse, mCoarse} - first},
                           {0, 0, 0}, grid.Dims());
  const double perValue = 1 / layer.full;
  ForEachCell(box, [&](i32 x, i32 y, i32 z) {
    const i32 at = grid.Index(x, y, z);
    double value = grid[at];
    if (layer.grids[1]) value = Length(Vec3d{value, (*layer.grids[1])[at], (*layer.grids[2])[at]});
    if (!(value > 0)) return;
    f(VecInt3D{(x + first.x) / mCoarse, (y + first.y) / mCoarse, (z + first.z) / mCoarse},
      static_cast<float>(value * perValue));
  });
}

void Drawing::GatherFire(const std::vector<PreviewLayer>& layers) {
  for (const PreviewLayer& layer : layers)
    if (layer.palette == Palette::Fire)
      ForEachShare(layer, WindowOf(layer.grids[0]->mLayout),
                   [&](const VecInt3D& cell, float share) { mFire.Add(cell, GlowOf(share)); });
  mFire.Spread();
}

void Drawing::AddLayer(const PreviewLayer& layer, const Window& window) {
  if (layer.palette == Palette::Fire) {
    ForEachShare(layer, window, [&](const VecInt3D& cell, float share) {
      Colour& sum = mSlice.glow[ColumnOf(cell)];
      const Colour& glow = GlowOf(share);
      for (int c = 0; c < 3; ++c) sum[c] += glow[c];
    });
    return;
  }
  const Colour albedo = Albedo(layer.palette);
  const float perShare = static_cast<float>(kFullDepth * PerCell());
  ForEachShare(layer, window, [&](const VecInt3D& cell, float share) {
    const std::size_t column = ColumnOf(cell);
    const float depth = perShare * share;
    mSlice.depth[column] += depth;
    for (int c = 0; c < 3; ++c) mSlice.albedo[column][c] += depth * albedo[c];
  });
}

void Drawing::AddSolid(const PreviewSolid& solid, const Window& window) {
  if (window.IsEmpty()) return;
  const EGrid<double>& grid = *solid.distance;
  const Vec3d lamp = Normalised(Vec3d{-0.35, 0.85, 0.4});
  ForEachCell({window.low, window.high}, [&](i32 x, i32 y, i32 z) {
    const VecInt3D cell{x, y, z};
    ViewColumn& column = mColumns[ColumnOf(cell)];
    if (column.through < 1e-3f) return;
    const Vec3d at = grid.ToSamples(mView.min + (ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) * mCell);
    const double distance = SampleLinear(grid, at);
    double cover = std::clamp(0.5 - distance / mCell, 0.0, 1.0);
    if (solid.isFaint) cover = std::abs(distance) < mCell ? 0.05 : 0;
    if (cover == 0) return;
    const Vec3d normal = Normalised(SampleGradient(grid, at, mView.cell));
    const double lit = 0.25 + 0.75 * std::max(0.0, Dot(normal, lamp));
    const float strength = static_cast<float>(cover * lit) * column.through;
    const Colour fire = FireOn(cell);
    const float caught = static_cast<float>(cover) * column.through;
    const Colour paint{0.20f, 0.24f, 0.32f};
    for (int c = 0; c < 3; ++c) {
      column.light[c] += paint[c] * strength;
      column.glow[c] += 0.3f * fire[c] * caught;
    }
    column.through *= static_cast<float>(1 - cover);
  });
}

void Drawing::Composite(const Window& window) {
  // Seen along y the lamp shines along the view, so that its light carries on from slice to slice;
  // else it falls down inside the slice.
  const bool alongView = mAxes.d == 1;
  const i32 lowV = mAxes.flipV ? Nv() - window.high[mAxes.v] : window.low[mAxes.v];
  const i32 highV = mAxes.flipV ? Nv() - window.low[mAxes.v] : window.high[mAxes.v];
  const i32 lowU = mAxes.flipU ? Nu() - window.high[mAxes.u] : window.low[mAxes.u];
  const i32 highU = mAxes.flipU ? Nu() - window.low[mAxes.u] : window.high[mAxes.u];
  if (!alongView) std::fill_n(mLight.begin(), Nu(), 1.0f);
  for (i32 v = highV - 1; v >= lowV; --v)
    for (i32 u = lowU; u < highU; ++u) {
      const std::size_t at = ColumnAt(u, v);
      ViewColumn& column = mColumns[at];
      for (int c = 0; c < 3; ++c) column.glow[c] += column.through * mSlice.glow[at][c];
      const float depth = mSlice.depth[at];
      if (depth <= 0) continue;
      float& lamp = mLight[alongView ? at : static_cast<std::size_t>(u)];
      const float half = std::exp(-0.5f * static_cast<float>(kShadow) * depth);
      lamp *= half;
      const float sun = lamp;
      lamp *= half;
      const float left = std::exp(-depth);
      const float scattered = column.through * (1 - left) / depth;
      const Colour fire = FireOn(CellOf(u, v, window.low[mAxes.d]));
      for (int c = 0; c < 3; ++c) {
        const float share = scattered * mSlice.albedo[at][c];
        column.light[c] += share * (kSky[c] + kSun[c] * sun);
        column.glow[c] += share * fire[c];
      }
      column.through *= left;
    }
}

Picture Drawing::Develop() const {
  const double scale = static_cast<double>(kLongSide) / std::max(Nu(), Nv());
  Picture picture;
  picture.width = std::max(1, static_cast<i32>(std::lround(Nu() * scale)));
  picture.height = std::max(1, static_cast<i32>(std::lround(Nv() * scale)));
  picture.rgb.reserve(std::size_t{3} * picture.width * picture.height);
  std::vector<Colour> pixels = Expose(mColumns, Nu(), Nv(), picture.width, picture.height);
  DrawDots(pixels, picture.width, picture.height);
  for (const Colour& pixel : pixels)
    for (const float light : pixel) picture.rgb.push_back(ToByte(light));
  return picture;
}

}  // namespace

Picture DrawPreview(const PreviewView& view, const std::vector<PreviewLayer>& layers,
                    const std::vector<PreviewSolid>& solids, const std::vector<PreviewDots>& dots) {
  Drawing drawing(view);
  for (const PreviewDots& each : dots) drawing.Place(each);
  drawing.Draw(layers, solids);
  return drawing.Develop();
}

}  // namespace MELDO_GLOBAL::app
