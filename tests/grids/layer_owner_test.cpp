#include "grids/layer_owner.h"

#include <gtest/gtest.h>

using namespace MELDO_GLOBAL;

TEST(LayerOwner, EveryLayerHasOneOwnerAndItsNeighboursReachIt) {
  for (const i32 workers : {1, 2, 3, 7, 64})
    for (i32 layer = -70; layer <= 70; ++layer) {
      i32 owners = 0;
      for (i32 worker = 0; worker < workers; ++worker) {
        const LayerOwner owner{worker, workers};
        owners += owner.Owns(layer);
        if (!owner.Owns(layer)) continue;
        EXPECT_TRUE(owner.Reaches(layer - 1) && owner.Reaches(layer + 1));
        // A block starts on a multiple of the thickness, below 0 as well.
        if (layer % LayerOwner::kThickness == 0) {
          EXPECT_TRUE(owner.Owns(layer + LayerOwner::kThickness - 1));
        }
      }
      EXPECT_EQ(owners, 1) << layer << " of " << workers;
    }
}
