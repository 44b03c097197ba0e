#include "fluids/particles/kernel.h"

#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

double KernelBase::Evaluate(const Vec3d& a, const Vec3d& b, double radius) const {
  const Vec3d d = a - b;
  const double squared = Dot(d, d), limit = radius * radius;
  if (!(squared < limit)) return mType == KernelType::kCurve ? -1.0 : 0.0;
  return EvaluateSquared(squared, limit, limit * radius);
}

const NodeKind& Kernel::Kind() {
  static const NodeKind kind = {
      .id = kNodeType,
      .type = "kernel",
      .label = "Falloff Kernel",
      .className = "Kernel",
      .typeId = kTypeKernel,
      .list = kListAuxiliary,
      .menu = {"General"},
      .purpose = "how strongly a neighbour counts, from its own place out to a radius",
      .example = {{},
                  {R"({ "type": "kernel", "name": "soft", "parameters": { "kernel": "cube" } })"}},
      .rows = Parameters,
      .make = MakeNode<Kernel>,
  };
  return kind;
}

const ParameterTable& Kernel::Parameters() {
  static const ParameterTable table = [] {
    using enum KernelType;
    const auto choice = [](KernelType type, std::string_view name) {
      return Choice{static_cast<i32>(type), name};
    };
    ParameterRow curve =
        CurveRow(13, "curve", "weight from a neighbour's own place (0) to the radius (1)")
            .OnlyWith(kTypeRow, {static_cast<i32>(kCurve)})
            .To(&Kernel::mCurve);
    curve.creation = SplineData{{{0, 1}, {0.4, 0.8}, {1, 0}}};
    return ParameterTable{
        LongRow(kTypeRow, "kernel", static_cast<i32>(kLinear), "",
                "the shape; gauss to cube_power are per volume, the others 1 or more at the centre")
            .Choices({choice(kGauss, "gauss"), choice(kPoly6, "poly6"),
                      choice(kPoly6Power, "poly6_power"), choice(kParabola, "parabola"),
                      choice(kCube, "cube"), choice(kCubePower, "cube_power"),
                      choice(kLinear, "linear"), choice(kSharp, "sharp"), choice(kBlob, "blob"),
                      choice(kExponential, "exponential"), choice(kSquareCube, "square_cube"),
                      choice(kClampedCube, "clamped_cube"), choice(kCurve, "curve")})
            .To(&Kernel::mKernelType),
        curve.Missing(std::monostate{}),
    };
  }();
  return table;
}

bool Kernel::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  mKernel.SetType(static_cast<KernelType>(mKernelType));
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
