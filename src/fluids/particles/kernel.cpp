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
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "eddies" })",
            R"({ "type": "particlemesh_emission_setting", "name": "rate", "parameters": { "amount": 200 } })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "eddies", "kind": "vorticity", "source": "ball mesh", "settings": "rate" } })",
            R"({ "type": "particle_advection", "name": "drift", "parameters": { "group": "eddies", "kind": "vorticity" } })",
            R"({ "type": "kernel", "name": "soft", "parameters": { "kernel": "cube" } })",
            R"({ "type": "force_particleturbulence", "name": "stir", "parameters": { "group": "eddies", "kernel": "soft" } })",
            R"({ "type": "grid_advection", "name": "carry", "parameters": { "target": "gas", "solver": "gas" } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["stir"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Kernel>,
  };
  return kind;
}

std::vector<Choice> KernelChoices() {
  using enum KernelType;
  constexpr std::pair<KernelType, std::string_view> kNames[] = {
      {kGauss, "gauss"},
      {kPoly6, "poly6"},
      {kPoly6Power, "poly6_power"},
      {kParabola, "parabola"},
      {kCube, "cube"},
      {kCubePower, "cube_power"},
      {kLinear, "linear"},
      {kSharp, "sharp"},
      {kBlob, "blob"},
      {kExponential, "exponential"},
      {kSquareCube, "square_cube"},
      {kClampedCube, "clamped_cube"},
      {kCurve, "curve"},
  };
  std::vector<Choice> choices;
  for (const auto& [type, name] : kNames) choices.push_back({static_cast<i32>(type), name});
  return choices;
}

const ParameterTable& Kernel::Parameters() {
  static const ParameterTable table = [] {
    ParameterRow curve =
        CurveRow(13, "curve", "weight from a neighbour's own place (0) to the radius (1)")
            .OnlyWith(kTypeRow, {static_cast<i32>(KernelType::kCurve)})
            .To(&Kernel::mCurve);
    curve.creation = SplineData{{{0, 1}, {0.4, 0.8}, {1, 0}}};
    return ParameterTable{
        LongRow(kTypeRow, "kernel", static_cast<i32>(KernelType::kLinear), "",
                "the shape; gauss to cube_power are per volume, the others 1 or more at the centre")
            .Choices(KernelChoices())
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
