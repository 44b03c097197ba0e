// Numbers by which objects of a scene are told apart.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Bits of `GetCategories`; the same numbers as bit indices go to the look-ups of `Scene`.
enum Category : u32 {
  kCategoryScalar = 0x2,
  kCategoryVector = 0x4,
  kCategoryBoolean = 0x8,
  kCategoryGrid = 0x40,
  kCategoryParticle = 0x80,
  kCategoryConstraint = 0x100,
  kCategoryInstant = 0x200,
  kCategoryProperty = 0x400,
  kCategoryMesh = 0x1000,
  kCategoryActiveVolume = 0x2000,  ///< geometry that acts as an obstacle
  kCategoryVolume = 0x4000,
};
enum CategoryBit : i32 {
  kBitScalar = 1,
  kBitVector = 2,
  kBitBoolean = 3,
  kBitParticle = 7,
  kBitProperty = 10,
  kBitMesh = 12,
  kBitActiveVolume = 13,
  kBitVolume = 14,
  kBitAny = 31,
};

/// Numbers of the scene's object lists.
enum ListNumber : i32 {
  kListChannels = 1,
  kListGeometry = 2,
  kListEmitters = 3,
  kListOperators = 4,
  kListSolvers = 5,
  kListParticles = 6,
  kListForces = 7,
  kListCaches = 8,
  kListSettings = 10,
  kListAuxiliary = 11,
  kListAll = 12,  ///< look-ups: every list in order
};

/// `GetTypeId` answers that other classes ask for. Two classes may share one.
enum TypeId : i32 {
  kTypeChannel = 46,
  kTypeDynamicChannel = 47,
  kTypeObjectGridEmitter = 4,
  kTypeCellEmitter = 5,
  kTypeParticleToGridEmitter = 8,
  kTypeRigidForces = 9,
  kTypeGridEmissionSettings = 10,
  kTypeGravity = 35,
  kTypeBuoyancy = 33,
  kTypeGridTurbulence = 36,
  kTypeSwirling = 37,
  kTypeFluidSolver = 42,
  kTypeWaterSolver = 43,
  kTypeScalarChannel = 49,
  kTypeVectorChannel = 50,
  kTypeVelocityChannel = 51,
  kTypeFuelChannel = 52,
  kTypeTemperatureChannel = 53,
  kTypeFireChannel = 54,
  kTypeLevelsetChannel = 55,
  kTypeDuration = 56,
  kTypeKernel = 57,
  kTypeAlignment = 58,
  kTypeGridCacher = 59,
  kTypeParticleCacher = 60,
  kTypeMeshCacher = 61,
  kTypeMeshOperator = 67,
  kTypeVertexNormals = 68,
  kTypeParticleGroup = 72,
  kTypeProperty = 73,
  kTypeMultiVolume = 76,
  kTypeVolumeMesh = 84,
  kTypeSurfaceReconstructor = 90,
  kTypeImplicitMesher = 91,
  kTypeMesh = 95,
  kTypeMultiMesh = 96,
  kTypeChannelPair = 98,
  kTypeChannelValue = 99,
  kTypeParticleSheet = 103,
  kTypeAny = 2000,  ///< look-ups: any type
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
