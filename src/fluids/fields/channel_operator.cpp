#include "fluids/fields/channel_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool ChannelOperator::Attach(void* channel, void*) {
  mScalar = nullptr;
  mVectorChannel = nullptr;
  auto* object = static_cast<iBase*>(channel);
  if (!object) return false;
  if (object->HasCategory(kBitVector))
    mVectorChannel = dynamic_cast<VectorField*>(object);
  else
    mScalar = dynamic_cast<ScalarField*>(object);
  return mScalar || mVectorChannel;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
