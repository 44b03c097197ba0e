// Level sets that are written like any channel.
#pragma once
#include "fluids/fields/emission_handlers.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A signed distance field that emission may write into; it has no second buffer.
template <class T, class G>
class LevelsetChannel : public ChannelBase_Scalar<T, G> {
 public:
  LevelsetChannel() { LevelsetChannel::CreateEmissionHandler(); }
  LevelsetChannel(host::BaseNode* node, Scene* scene) : ChannelBase_Scalar<T, G>(node, scene) {
    LevelsetChannel::CreateEmissionHandler();
  }
  i32 OwnTypeId() const override { return kTypeLevelsetChannel; }
  void CreateEmissionHandler() override {
    this->mEmissionHandler = std::make_unique<ScalarEmissionHandler<T, G>>(this);
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
