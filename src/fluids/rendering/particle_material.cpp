#include "fluids/rendering/particle_material.h"

#include <cmath>

#include "fluids/particles/particle_import.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;
using namespace host;

namespace {

using Float3 = SphereCloud::Value;

Float3 ToFloat(const Vec3d& v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

std::vector<Choice> KindOrAll() {
  std::vector<Choice> choices = ParticleKindChoices();
  choices.push_back({ParticleLook::kAllKinds, "all"});
  return choices;
}

std::vector<Choice> ShadeChoices() {
  std::vector<Choice> choices = {{ParticleLook::kNothing, "nothing"},
                                 {ParticleLook::kLife, "life"},
                                 {ParticleLook::kSpeed, "speed"}};
  for (const Choice& choice : PropertyChoices(0, property_id::kFirstVector))
    choices.push_back(choice);
  return choices;
}

/// What the particles of a store say where colours follow something.
class ShadeReader {
 public:
  ShadeReader(const ParticleLook& look, const ParticleStore& store)
      : mLook(look), mStore(store), mReading(look.property ? 0 : look.shadeBy) {
    const auto find = [&](const PropertyKey& key) {
      mScalar = store.Find<double>(key);
      if (!mScalar) mVector = store.Find<Vec3d>(key);
    };
    // The velocity is a field and has no column.
    if (look.property && look.property->PropertyId() == property_id::kVelocity)
      mReading = ParticleLook::kSpeed;
    else if (look.property)
      find(look.property->Key());
    else if (mReading == ParticleLook::kLife)
      mLifeSpan = store.Find<double>(property_id::kLifeSpan), find(property_id::kAge);
    else if (mReading >= 0)
      find(mReading);
  }

  /// 0 at the low end of the gradients, 1 at their high end.
  double At(i32 row) const {
    const double way = mLook.high - mLook.low;
    const double part = (ValueAt(row) - mLook.low) / (way == 0 ? 1 : way);
    return std::isnan(part) ? 0 : std::clamp(part, 0.0, 1.0);
  }

 private:
  double ValueAt(i32 row) const {
    if (mReading == ParticleLook::kSpeed) return Length(mStore.Velocities()[row]);
    if (mReading == ParticleLook::kLife) {
      const double age = mScalar ? mScalar->Get(row, 1) : 1;
      const double span = mLifeSpan ? mLifeSpan->Get(row, 1) : 1;
      return 1 - std::min(age / span, 1.0);
    }
    if (mVector) return mVector->Has(row) ? Length(mVector->Get(row, {})) : mLook.low;
    return mScalar ? mScalar->Get(row, mLook.low) : mLook.low;
  }

  const ParticleLook& mLook;
  const ParticleStore& mStore;
  i32 mReading;
  const PropertyColumn<double>* mScalar = nullptr;
  const PropertyColumn<double>* mLifeSpan = nullptr;
  const PropertyColumn<Vec3d>* mVector = nullptr;
};

/// Adds the living particles of a store.
void AddParticles(const ParticleLook& look, const ParticleStore& store, double frameSeconds,
                  SphereCloud& cloud) {
  const ShadeReader shade(look, store);
  const Vec3d& scale = store.Layout().simToWorld;
  const auto* radii = look.ownRadius ? store.Find<double>(property_id::kRadius) : nullptr;
  const auto* colours = look.ownColour ? store.Find<Vec3d>(property_id::kColor) : nullptr;
  const bool glows = look.emission != Vec3d{};
  for (i32 row = 0; row < store.Count(); ++row) {
    if (!(store.Flags()[row] & PF_ALIVE)) continue;
    cloud.positions.push_back(ToFloat(store.Positions()[row] * scale));
    cloud.moves.push_back(ToFloat(store.Velocities()[row] * scale * frameSeconds));
    const double radius = radii && radii->Has(row) ? radii->Get(row, 0) * scale.x : look.radius;
    cloud.radii.push_back(static_cast<float>(radius * look.radiusScale));
    const double at = look.colourGradient || look.emissionGradient ? shade.At(row) : 0;
    Vec3d colour = colours ? colours->Get(row, look.colour) : look.colour;
    if (look.colourGradient) colour = colour * look.colourGradient->Evaluate(at);
    cloud.colours.push_back(ToFloat(Min(Max(colour, Vec3d{}), Vec3d{1, 1, 1})));
    if (!glows) continue;
    Vec3d emission = look.emission;
    if (look.emissionGradient) emission = emission * look.emissionGradient->Evaluate(at);
    cloud.emissions.push_back(ToFloat(Max(emission, Vec3d{})));
  }
}

}  // namespace

const ParameterTable& ParticleRenderer_Material::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable t = {
        LinkRow(1000, "group",
                "the particles that are drawn: a group, an object of particles or one of points",
                {ParticleGroup::Kind().id, kPointsObject})
            .To(&ParticleLook::group)
            .To(&ParticleLook::points)
            .Required(),
        LongRow(1001, "kind", ParticleLook::kAllKinds, "", "which of the group's particles")
            .Choices(KindOrAll())
            .To(&ParticleLook::kind),
        RealRow(1002, "radius", 0.5, "host", "how large a particle is")
            .AtLeast(0)
            .To(&ParticleLook::radius),
        BoolRow(1003, "own_radius", true, "particles with a radius of their own have that instead")
            .To(&ParticleLook::ownRadius),
        RealRow(1004, "radius_scale", 1, "none", "makes all particles larger or smaller")
            .AtLeast(0)
            .To(&ParticleLook::radiusScale),
        RealRow(1005, "least_pixels", 1, "pixels",
                "what looks smaller is drawn that large and as much fainter, so that it doesn't "
                "flicker")
            .Range(0, 64)
            .To(&ParticleLook::leastPixels),
        VectorRow(1006, "colour", {0.8, 0.8, 0.8}, "none",
                  "how much red, green and blue light a particle gives back, linear")
            .Range(0, 1)
            .To(&ParticleLook::colour),
        BoolRow(1007, "own_colour", true, "particles with a colour of their own have that instead")
            .To(&ParticleLook::ownColour),
        RealRow(1008, "reflection", 0, "none", "mirrored part of light from straight ahead")
            .Range(0, 1)
            .To(&ParticleLook::reflection),
        RealRow(1009, "roughness", 0.2, "none", "0 mirrors sharply, 1 is dull")
            .Range(0, 1)
            .To(&ParticleLook::roughness),
        VectorRow(1010, "emission", {0, 0, 0}, "none",
                  "how brightly a particle shines by itself, in each colour; it is seen and "
                  "mirrored, but doesn't light other things")
            .AtLeast(0)
            .To(&ParticleLook::emission),
        LongRow(1011, "shade_by", ParticleLook::kNothing, "",
                "what the gradients follow: life goes from 0 at birth to 1 at death, speed is in "
                "metres a second, the others are properties")
            .Choices(ShadeChoices())
            .To(&ParticleLook::shadeBy),
        LinkRow(1012, "property",
                "a property that the gradients follow instead; of vectors, how "
                "long they are",
                {Property<double>::Kind().id, Property<Vec3d>::Kind().id})
            .To(&ParticleLook::property),
        RealRow(1013, "shade_low", 0, "none",
                "value at the start of the gradients; particles without one have this")
            .To(&ParticleLook::low),
        RealRow(1014, "shade_high", 1, "none", "value at their end").To(&ParticleLook::high),
        GradientRow(1015, "colour_gradient", "multiplies the colour, from low (0) to high (1)")
            .To(&ParticleLook::colourGradient),
        GradientRow(1016, "emission_gradient",
                    "multiplies the emission, as the colour of a spark that cools")
            .To(&ParticleLook::emissionGradient),
    };
    for (ParameterRow& row : t)
      if (row.type == ParameterType::Gradient) row.creation = std::monostate{};
    return t;
  }();
  return table;
}

SphereCloud ParticleRenderer_Material::Spheres(const RenderData&) const {
  ParticleLook look;
  FillMembers(Parameters(), mNode, look);
  const Scene* scene = nullptr;
  for (std::size_t i = 0; i < mScenes.size() && !look.group && !look.points; ++i) {
    ConnectLinks(Parameters(), *mNode, look, *mScenes[i]);
    scene = mScenes[i];
  }
  SphereCloud cloud;
  cloud.reflection = look.reflection;
  cloud.roughness = look.roughness;
  cloud.leastPixels = look.leastPixels;
  if (look.points) {
    ParticleStore store;
    store.Reset(scene->mDomain);
    AppendPoints(*look.points, scene->mDomain, {}, store);
    AddParticles(look, store, scene->mTime.frameDuration, cloud);
  }
  if (!look.group) return cloud;
  for (i32 kind = 0; kind < kParticleKinds; ++kind)
    if (look.kind == kind || look.kind == ParticleLook::kAllKinds)
      AddParticles(look, look.group->Store(kind), scene->mTime.frameDuration, cloud);
  return cloud;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
