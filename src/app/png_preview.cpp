#include "app/png_preview.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "grids/sampling.h"

namespace MELDO_GLOBAL::app {

namespace {

constexpr i32 kLongSide = 512;
/// Optical depth of smoke at full density across the long side of the box.
constexpr double kFullDepth = 32;
constexpr double kShadow = 0.5;  ///< how much of its depth smoke casts as shadow
constexpr double kGlow = 45;     ///< light of heat at its full value across the long side

using Colour = std::array<float, 3>;

constexpr Colour kSky{0.085f, 0.115f, 0.175f};  ///< light from all sides, under the cold sky
constexpr Colour kSun{1.00f, 0.94f, 0.84f};     ///< light from above

/// Light that reaches the eye and what is left of the background, per column of cells.
struct Column {
  Colour light{};
  float through = 1;
};

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
  return palette == Palette::Dust ? Colour{0.80f, 0.66f, 0.50f} : Colour{0.90f, 0.91f, 0.92f};
}

/// Colour of heat at `t` of its full value: red, orange, yellow, white.
Colour HeatColour(float t) {
  t = std::clamp(t, 0.0f, 1.0f);
  return {std::min(1.0f, 0.55f + 2.2f * t), std::min(1.0f, 0.10f + 1.6f * t * t + 0.3f * t),
          std::min(1.0f, 0.03f + 1.1f * t * t * t)};
}

/// One slice across the direction of view.
struct Slice {
  std::vector<float> depth;    ///< optical depth of the slice
  std::vector<Colour> albedo;  ///< weighted by depth
  std::vector<Colour> glow;
  void Clear(std::size_t size) {
    depth.assign(size, 0);
    albedo.assign(size, {});
    glow.assign(size, {});
  }
};

class Drawing {
 public:
  explicit Drawing(const PreviewView& view) : mView(view), mAxes(AxesOf(view.axis)) {
    const Vec3d size = view.max - view.min;
    for (int a = 0; a < 3; ++a)
      mCells[a] = std::clamp(static_cast<i32>(std::lround(size[a] / view.cell)), 1, 1 << 14);
    mLong = std::max({size.x, size.y, size.z});
    mColumns.resize(std::size_t{1} * Nu() * Nv());
  }

  void Draw(const std::vector<PreviewLayer>& layers, const std::vector<PreviewSolid>& solids) {
    Slice slice;
    std::vector<float> light(mColumns.size(), 1.0f);
    for (i32 d = mCells[mAxes.d] - 1; d >= 0; --d) {
      slice.Clear(mColumns.size());
      for (const PreviewLayer& layer : layers) AddLayer(layer, d, slice);
      for (const PreviewSolid& solid : solids) AddSolid(solid, d);
      Composite(slice, light);
    }
  }

  Picture Develop() const;

 private:
  i32 Nu() const { return mCells[mAxes.u]; }
  i32 Nv() const { return mCells[mAxes.v]; }
  /// Column of a cell of the box.
  std::size_t ColumnOf(i32 u, i32 v) const {
    if (mAxes.flipU) u = Nu() - 1 - u;
    if (mAxes.flipV) v = Nv() - 1 - v;
    return std::size_t{1} * v * Nu() + u;
  }
  /// The part of a grid of `dims` samples at `first` that lies in slice `d` of the box.
  struct Window {
    VecInt3D low, high;  ///< cells of the box, high exclusive
    bool isEmpty;
  };
  Window WindowOf(const VecInt3D& first, const VecInt3D& dims, i32 d) const {
    Window w{Max(first, VecInt3D{}), Min(first + dims, mCells), false};
    w.low[mAxes.d] = std::max(w.low[mAxes.d], d);
    w.high[mAxes.d] = std::min(w.high[mAxes.d], d + 1);
    w.isEmpty = w.low.x >= w.high.x || w.low.y >= w.high.y || w.low.z >= w.high.z;
    return w;
  }
  VecInt3D FirstCell(const GridLayout& layout) const {
    const Vec3d at = (layout.simOrigin - mView.min) / mView.cell;
    return {static_cast<i32>(std::lround(at.x)), static_cast<i32>(std::lround(at.y)),
            static_cast<i32>(std::lround(at.z))};
  }

  void AddLayer(const PreviewLayer& layer, i32 d, Slice& slice) const;
  void AddSolid(const PreviewSolid& solid, i32 d);
  void Composite(const Slice& slice, std::vector<float>& light);

  const PreviewView mView;
  const Axes mAxes;
  VecInt3D mCells{};
  double mLong = 1;
  std::vector<Column> mColumns;
};

void Drawing::AddLayer(const PreviewLayer& layer, i32 d, Slice& slice) const {
  const EGrid<double>& grid = *layer.grids[0];
  const VecInt3D first = FirstCell(grid.mLayout);
  const Window w = WindowOf(first, grid.Dims(), d);
  if (w.isEmpty) return;
  const double perValue = 1 / layer.full;
  const double perCell = mView.cell / mLong;
  const Colour albedo = Albedo(layer.palette);
  for (i32 z = w.low.z; z < w.high.z; ++z)
    for (i32 y = w.low.y; y < w.high.y; ++y)
      for (i32 x = w.low.x; x < w.high.x; ++x) {
        const i32 at = grid.Index(x - first.x, y - first.y, z - first.z);
        double value = grid[at];
        if (layer.grids[1])
          value = Length(Vec3d{value, (*layer.grids[1])[at], (*layer.grids[2])[at]});
        if (!(value > 0)) continue;
        const VecInt3D cell{x, y, z};
        const std::size_t column = ColumnOf(cell[mAxes.u], cell[mAxes.v]);
        const float share = static_cast<float>(value * perValue);
        if (layer.palette == Palette::Heat) {
          const Colour colour = HeatColour(share);
          const float strength = static_cast<float>(kGlow * perCell) * share;
          for (int c = 0; c < 3; ++c) slice.glow[column][c] += strength * colour[c];
        } else {
          const float depth = static_cast<float>(kFullDepth * perCell) * share;
          slice.depth[column] += depth;
          for (int c = 0; c < 3; ++c) slice.albedo[column][c] += depth * albedo[c];
        }
      }
}

void Drawing::AddSolid(const PreviewSolid& solid, i32 d) {
  const EGrid<double>& grid = *solid.distance;
  const Window w = WindowOf(FirstCell(grid.mLayout), grid.mLayout.dims + VecInt3D{1, 1, 1}, d);
  if (w.isEmpty) return;
  const double h = mView.cell;
  const Vec3d lamp = Normalised(Vec3d{-0.35, 0.85, 0.4});
  for (i32 z = w.low.z; z < w.high.z; ++z)
    for (i32 y = w.low.y; y < w.high.y; ++y)
      for (i32 x = w.low.x; x < w.high.x; ++x) {
        const VecInt3D cell{x, y, z};
        Column& column = mColumns[ColumnOf(cell[mAxes.u], cell[mAxes.v])];
        if (column.through < 1e-3f) continue;
        const Vec3d centre = mView.min + (ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) * h;
        const Vec3d at = grid.ToSamples(centre);
        const double distance = SampleLinear(grid, at);
        double cover = std::clamp(0.5 - distance / h, 0.0, 1.0);
        if (solid.isFaint) cover = std::abs(distance) < h ? 0.05 : 0;
        if (cover == 0) continue;
        const Vec3d normal = Normalised(SampleGradient(grid, at, h));
        const double lit = 0.25 + 0.75 * std::max(0.0, Dot(normal, lamp));
        const float strength = static_cast<float>(cover * lit) * column.through;
        column.light[0] += 0.20f * strength;
        column.light[1] += 0.24f * strength;
        column.light[2] += 0.32f * strength;
        column.through *= static_cast<float>(1 - cover);
      }
}

void Drawing::Composite(const Slice& slice, std::vector<float>& light) {
  // Seen along y the lamp shines along the view, so that its light carries on from slice to slice;
  // else it falls down inside the slice.
  const bool alongView = mAxes.d == 1;
  if (!alongView) std::fill_n(light.begin(), Nu(), 1.0f);
  for (i32 v = Nv() - 1; v >= 0; --v)
    for (i32 u = 0; u < Nu(); ++u) {
      const std::size_t at = std::size_t{1} * v * Nu() + u;
      float& lamp = light[alongView ? at : static_cast<std::size_t>(u)];
      const float depth = slice.depth[at];
      Column& column = mColumns[at];
      for (int c = 0; c < 3; ++c) column.light[c] += column.through * slice.glow[at][c];
      if (depth <= 0) continue;
      const float half = std::exp(-0.5f * static_cast<float>(kShadow) * depth);
      lamp *= half;
      const float sun = lamp;
      lamp *= half;
      const float left = std::exp(-depth);
      const float scattered = column.through * (1 - left) / depth;
      for (int c = 0; c < 3; ++c)
        column.light[c] += scattered * slice.albedo[at][c] * (kSky[c] + kSun[c] * sun);
      column.through *= left;
    }
}

/// Weights of Mitchell's and Netravali's cubic filter (1988, B = C = 1/3) at four samples round a
/// fraction: neither blocky nor ringing.
std::array<float, 4> CubicWeights(float t) {
  const auto outer = [](float x) { return ((-7.0f * x + 36) * x * x - 60 * x + 32) / 18; };
  const auto inner = [](float x) { return ((21.0f * x - 36) * x * x + 16) / 18; };
  return {outer(1 + t), inner(t), inner(1 - t), outer(2 - t)};
}

u8 ToByte(float linear) {
  const float v = std::clamp(linear, 0.0f, 1.0f);
  const float coded = v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1 / 2.4f) - 0.055f;
  return static_cast<u8>(coded * 255 + 0.5f);
}

/// Where a picture's samples come from along one axis.
struct Taps {
  std::array<i32, 4> index;
  std::array<float, 4> weight;
};
std::vector<Taps> MakeTaps(i32 pixels, i32 samples) {
  std::vector<Taps> taps(static_cast<std::size_t>(pixels));
  for (i32 p = 0; p < pixels; ++p) {
    const float at = (static_cast<float>(p) + 0.5f) * samples / pixels - 0.5f;
    const i32 base = static_cast<i32>(std::floor(at));
    taps[p].weight = CubicWeights(at - base);
    for (i32 i = 0; i < 4; ++i) taps[p].index[i] = std::clamp(base - 1 + i, 0, samples - 1);
  }
  return taps;
}

Picture Drawing::Develop() const {
  const double scale = static_cast<double>(kLongSide) / std::max(Nu(), Nv());
  Picture picture;
  picture.width = std::max(1, static_cast<i32>(std::lround(Nu() * scale)));
  picture.height = std::max(1, static_cast<i32>(std::lround(Nv() * scale)));
  picture.rgb.resize(std::size_t{3} * picture.width * picture.height);
  const std::vector<Taps> tapsU = MakeTaps(picture.width, Nu());
  const std::vector<Taps> tapsV = MakeTaps(picture.height, Nv());
  u8* out = picture.rgb.data();
  for (i32 row = 0; row < picture.height; ++row) {
    const Taps& tv = tapsV[picture.height - 1 - row];
    const float up = 1 - (static_cast<float>(row) + 0.5f) / picture.height;
    const Colour background{0.006f + 0.008f * up, 0.007f + 0.010f * up, 0.010f + 0.016f * up};
    for (const Taps& tu : tapsU) {
      Colour light{};
      float through = 0;
      for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i) {
          const Column& c = mColumns[std::size_t{1} * tv.index[j] * Nu() + tu.index[i]];
          const float weight = tv.weight[j] * tu.weight[i];
          for (int k = 0; k < 3; ++k) light[k] += weight * c.light[k];
          through += weight * c.through;
        }
      through = std::clamp(through, 0.0f, 1.0f);
      for (int k = 0; k < 3; ++k) *out++ = ToByte(light[k] + through * background[k]);
    }
  }
  return picture;
}

}  // namespace

Picture DrawPreview(const PreviewView& view, const std::vector<PreviewLayer>& layers,
                    const std::vector<PreviewSolid>& solids) {
  Drawing drawing(view);
  drawing.Draw(layers, solids);
  return drawing.Develop();
}

}  // namespace MELDO_GLOBAL::app
