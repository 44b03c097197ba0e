// The emission handlers of grid channels.
#pragma once
#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Base of the handlers that write into the grids of a channel, which owns the handler.
template <class T, class G>
class ChannelEmissionHandler : public iEmissionHandler<T> {
 public:
  explicit ChannelEmissionHandler(Channel_Dynamic<T, G>* channel) : mChannel(channel) {}
  using iEmissionHandler<T>::Emit;
  void Emit(const T&, const Vec3d&, const EmissionWrite&, const std::vector<i32>&,
            const LayerOwner&) override {}
  void EmitRow(const T*, const Vec3d*, i32, const EmissionWrite&, const LayerOwner&) override {}

 protected:
  Channel_Dynamic<T, G>* mChannel;
};

/// Writes scalars: with a splat as they are, else combined with one cell by the mode and limited to
/// the value range.
template <class T, class G>
class ScalarEmissionHandler : public ChannelEmissionHandler<T, G> {
 public:
  using ChannelEmissionHandler<T, G>::ChannelEmissionHandler;
  using iEmissionHandler<T>::Emit;
  void Emit(const T& value, const Vec3d& position, const EmissionWrite& write,
            const std::vector<i32>& indices, const LayerOwner& owner) override;
  void EmitRow(const T* values, const Vec3d* positions, i32 count, const EmissionWrite& write,
               const LayerOwner& owner) override;
};

/// Fire is a fraction: a value outside 0..1 goes on as 1, or as 0 when it is negative.
template <class T, class G>
class FireEmissionHandler : public ScalarEmissionHandler<T, G> {
 public:
  using ScalarEmissionHandler<T, G>::ScalarEmissionHandler;
  using iEmissionHandler<T>::Emit;
  void Emit(const T& value, const Vec3d& position, const EmissionWrite& write,
            const std::vector<i32>& indices, const LayerOwner& owner) override {
    ScalarEmissionHandler<T, G>::Emit(Fraction(value), position, write, indices, owner);
  }
  void EmitRow(const T* values, const Vec3d* positions, i32 count, const EmissionWrite& write,
               const LayerOwner& owner) override {
    for (i32 i = 0; i < count; ++i)
      FireEmissionHandler::Emit(values[i], positions[i], write, {}, owner);
  }

 private:
  static T Fraction(T value) { return value >= 0 && value <= 1 ? value : value >= 0 ? T(1) : T(0); }
};

/// Writes vectors component by component, each into the cell of its own grid.
template <class T, class G>
class VectorEmissionHandler : public ChannelEmissionHandler<T, G> {
 public:
  using ChannelEmissionHandler<T, G>::ChannelEmissionHandler;
  using iEmissionHandler<T>::Emit;
  void Emit(const T& value, const Vec3d& position, const EmissionWrite& write,
            const std::vector<i32>& indices, const LayerOwner& owner) override;
  void EmitRow(const T* values, const Vec3d* positions, i32 count, const EmissionWrite& write,
               const LayerOwner& owner) override;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
