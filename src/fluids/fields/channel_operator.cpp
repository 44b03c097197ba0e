#include "fluids/fields/channel_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool ChannelOperator::Attach(iBase* channel) {
  mScalar = nullptr;
  mVectorChannel = nullptr;
  if (!channel) return false;
  if (channel->HasCategory(kBitVector))
    mVectorChannel = dynamic_cast<VectorField*>(channel);
  else
    mScalar = dynamic_cast<ScalarField*>(channel);
  return mScalar || mVectorChannel;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
