#include <gtest/gtest.h>

#include "nodes/catalogue.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

TEST(Catalogue, EveryKindIsFoundByIdTypeAndLabel) {
  for (const NodeKind& kind : Catalogue()) {
    EXPECT_EQ(FindKind(kind.id), &kind);
    EXPECT_EQ(FindKind(kind.type), &kind);
    EXPECT_EQ(FindKind(std::to_string(kind.id)), &kind);
  }
}
