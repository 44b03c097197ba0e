// Saving and restoring the state of a simulation, by one description for both ways.
#pragma once
#include <concepts>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "grids/egrid.h"
#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Takes the members of objects one after the other: a saving archive writes them, a loading one
/// sets them to what was written. A loading archive that finds something else fails, and from then
/// on changes nothing.
class StateArchive {
 public:
  virtual ~StateArchive() = default;
  virtual bool IsLoading() const = 0;
  /// False once something didn't fit.
  bool IsGood() const { return mProblem.empty(); }
  const std::string& Problem() const { return mProblem; }
  /// Marks the archive as failed; the first reason stands.
  void Fail(std::string_view problem) {
    if (mProblem.empty()) mProblem = problem;
  }

  template <class... T>
  void operator()(T&... values) {
    (Item(values), ...);
  }
  /// Writes the value, or fails when the one that was written differs: `what` is named then.
  template <class T>
  void Expect(T value, const char* what) {
    T stored = value;
    Item(stored);
    if (IsGood() && stored != value) Fail(std::string(what).append(" differs"));
  }
  /// A grid whose samples are filled before they are read: its place and size alone. A restored one
  /// holds zeros.
  template <class T>
  void ShapeOf(std::unique_ptr<EGrid<T>>& grid) {
    if (HasGrid(grid)) MakeGrid(grid);
  }
  /// A part that a reader can tell from others by `id`; an object's, or a scene's.
  virtual void BeginPart(u64 /*id*/) {}
  virtual void EndPart() {}

 protected:
  /// Writes `bytes` bytes of elements of `element` bytes, or fills them when as many were written.
  virtual void Block(void* data, std::size_t bytes, i32 element) = 0;

 private:
  /// Numbers, and structures of whole numbers without gaps.
  template <class T>
  static constexpr bool kIsPlain = std::is_arithmetic_v<T> || std::is_enum_v<T> ||
                                   (std::is_trivially_copyable_v<T> &&
                                    std::has_unique_object_representations_v<T>);

  template <class T>
  requires(kIsPlain<T> && !std::is_pointer_v<T> && !std::same_as<T, bool>) void Item(T& value) {
    Block(&value, sizeof value, sizeof value);
  }
  void Item(bool& value) {
    u8 byte = value;
    Block(&byte, 1, 1);
    value = byte != 0;
  }
  template <class T>
  requires(std::is_floating_point_v<T>) void Item(Vec3D<T>& v) { (*this)(v.x, v.y, v.z); }
  void Item(Matrix& m) { (*this)(m.offset, m.v1, m.v2, m.v3); }
  void Item(std::string& text) {
    u64 count = text.size();
    Item(count);
    Resize(text, count);
    if (!text.empty()) Block(text.data(), text.size(), 1);
  }
  template <class T>
  void Item(std::vector<T>& values) {
    u64 count = values.size();
    Item(count);
    Resize(values, count);
    if constexpr (kIsPlain<T> || std::same_as<T, Vec3d>) {
      constexpr i32 element = sizeof(T) % 8 == 0 ? 8 : sizeof(T) % 4 == 0 ? 4 : 1;
      if (!values.empty()) Block(values.data(), values.size() * sizeof(T), element);
    } else {
      for (T& value : values) Item(value);
    }
  }
  /// A class that states its own members.
  template <class T>
  requires requires(T& value, StateArchive& archive) { value.Persist(archive); }
  void Item(T& value) { value.Persist(*this); }
  template <class T>
  void Item(std::optional<T>& value) {
    bool has = value.has_value();
    Item(has);
    if (IsLoading() && IsGood()) value = has ? std::optional<T>(T{}) : std::nullopt;
    if (value && IsGood()) Item(*value);
  }
  template <class K, class V>
  void Item(std::map<K, V>& map) {
    std::vector<K> keys;
    for (const auto& entry : map) keys.push_back(entry.first);
    Item(keys);
    if (!IsGood()) return;
    if (IsLoading()) map.clear();
    for (const K& key : keys) Item(map[key]);
  }
  template <class A, class B>
  void Item(std::pair<A, B>& pair) {
    (*this)(pair.first, pair.second);
  }
  template <class T>
  void Item(std::unique_ptr<EGrid<T>>& grid) {
    if (!HasGrid(grid) || !MakeGrid(grid)) return;
    (*this)(grid->mActiveMin, grid->mActiveMax, grid->mRangeMin, grid->mRangeMax);
    Block(grid->mData, sizeof(T) * static_cast<std::size_t>(grid->mCount), sizeof(T));
  }

  template <class T>
  bool HasGrid(std::unique_ptr<EGrid<T>>& grid) {
    bool has = grid && grid->mData;
    Item(has);
    if (IsLoading() && IsGood()) grid.reset();
    return has && IsGood();
  }
  template <class T>
  bool MakeGrid(std::unique_ptr<EGrid<T>>& grid) {
    Shape shape;
    if (!IsLoading()) shape.Take(*grid);
    (*this)(shape.kind, shape.dims, shape.worldSize, shape.cellSize, shape.worldOrigin);
    return !IsLoading() || shape.Make(*this, grid);
  }

  /// All that a grid's place and size follow from.
  struct Shape {
    i32 kind = 0;
    VecInt3D dims{};
    Vec3d worldSize{};
    f32 cellSize = 0;
    Vec3d worldOrigin{};

    template <class T>
    void Take(const EGrid<T>& grid) {
      kind = grid.mKind;
      dims = grid.Dims();
      worldSize = grid.mLayout.worldSize;
      cellSize = grid.mLayout.cellSize;
      worldOrigin = grid.mLayout.worldOrigin;
    }
    template <class T>
    bool Make(StateArchive& archive, std::unique_ptr<EGrid<T>>& grid) const {
      if (!archive.IsGood()) return false;
      if (dims.x < 1 || dims.y < 1 || dims.z < 1) {
        archive.Fail("a grid has no samples");
        return false;
      }
      grid = std::make_unique<EGrid<T>>(dims, worldSize, cellSize, kind, worldOrigin);
      if (!grid->mData) archive.Fail("there is no memory for a grid");
      return archive.IsGood();
    }
  };

  /// Sizes a container for `count` elements; a count that no state reaches fails.
  template <class C>
  void Resize(C& container, u64 count) {
    if (!IsGood() || !IsLoading()) return;
    if (count > kMostElements) return Fail("a list is too long");
    container.resize(count);
  }
  static constexpr u64 kMostElements = u64{1} << 31;

  std::string mProblem;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
