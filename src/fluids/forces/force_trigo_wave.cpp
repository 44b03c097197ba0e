#include "fluids/forces/force_trigo_wave.h"

#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& Force_TrigoWave::Kind() {
  static const NodeKind kind = {
      .id = 1300089,
      .type = "force_trigowave",
      .label = "DF::TrigoWave",
      .className = "Force_TrigoWave",
      .typeId = 38,
      .list = kListForces,
      .categories = kCategoryGrid | kCategoryParticle,
      .menu = {"Bodies/Forces", "Grids/Forces", "Particles/Forces"},
      .purpose = "rocks fluids and particles by a wave: plane crests, rings, a wheel, a spiral",
      .example =
          {{},
           {R"({ "type": "force_trigowave", "name": "swell", "parameters": { "wave": "plane", "mode": "across", "amplitude": 200 } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150],)",
            R"(  "parameters": { "wall_low_y": "open", "wall_high_y": "open", "forces": ["swell"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_TrigoWave>,
  };
  return kind;
}

const ParameterTable& Force_TrigoWave::Parameters() {
  static const ParameterTable table = {
      RealRow(
          kAmplitudeRow, "amplitude", 80.0, "host/s^2",
          "how hard the wave pushes where it is highest, a spiral up to 11 times as hard; rings, "
          "wheel and spiral measure lengths by it too")
          .To(&Force_TrigoWave::mAmplitude),
      RealRow(kSpeedRow, "speed", 50.0, "host/s", "how fast the crests run")
          .To(&Force_TrigoWave::mSpeed),
      RealRow(kLengthRow, "wavelength", 200.0, "host",
              "how far it is from crest to crest; below a millimetre nothing moves")
          .To(&Force_TrigoWave::mWaveLength),
      LongRow(kTypeRow, "wave", static_cast<i32>(WaveType::Spiral), "",
              "what runs, in the node's own axes: plane crests along z, the same with a push away "
              "from z for one across, rings away from z, a wheel that turns about z, a spiral")
          .Choices(
              {{0, "plane"}, {1, "plane_outwards"}, {2, "rings"}, {3, "pinwheel"}, {4, "spiral"}})
          .OrNumbers()
          .To(&Force_TrigoWave::mType),
      LongRow(
          kModeRow, "mode", static_cast<i32>(WaveMode::Forwards), "",
          "which way it pushes: along the way that it runs (forwards, backwards or to and fro), "
          "across that, or both in turn, so that things roll or go round in loops; a loop of rings "
          "pushes up to ten times as hard where the first ring is")
          .Choices({{0, "forwards"},
                    {1, "backwards"},
                    {2, "across_up"},
                    {3, "across_down"},
                    {4, "along"},
                    {5, "roll"},
                    {6, "counter_roll"},
                    {7, "across"},
                    {8, "loop"},
                    {9, "wide_loop"},
                    {10, "circle"}})
          .OrNumbers()
          .To(&Force_TrigoWave::mMode),
      RealRow(kOffsetRow, "time_offset", 0.0, "s", "lets the wave begin as it is later")
          .To(&Force_TrigoWave::mOffset),
      LinkRow(1006, "duration", "pushes only inside this time window", {Duration::Kind().id})
          .To(&Force_TrigoWave::mDuration),
      VectorRow(kScaleRow, "scale", {1, 1, 1}, "none",
                "stretches the wave along each of the node's axes: 2 is twice as long")
          .To(&Force_TrigoWave::mScale),
      BoolRow(kRunsRow, "use_simulation_time", true, "the wave runs; off, it stands at 'time'")
          .To(&Force_TrigoWave::mRuns),
      RealRow(kTimeRow, "time", 0.0, "s", "the moment at which the wave stands; keys move it")
          .OnlyWith(kRunsRow, {0})
          .To(&Force_TrigoWave::mFixedTime),
  };
  return table;
}

bool Force_TrigoWave::PrepareForce() {
  const double toSim = GetDomain().worldToSim.x;
  mWave.amplitude = mAmplitude * toSim;
  mWave.frequency = 1 / (mWaveLength * toSim);
  mWave.travelled = mSpeed * toSim * ((mRuns ? mTime->elapsed : mFixedTime) + mOffset);
  mWave.type = mType;
  mWave.mode = mMode;
  if (!(std::abs(mWave.frequency) <= TrigoWave::kHighestFrequency))
    return Deactivate("its 'wavelength' is below a millimetre");
  if (mScale.x == 0 || mScale.y == 0 || mScale.z == 0)
    return Deactivate("its 'scale' is 0 along an axis");
  mReciprocal = Vec3d{1, 1, 1} / mScale;
  mInterface.GetMatrix(mPlacement);
  mInverse = Inverse(mPlacement);
  return true;
}

void Force_TrigoWave::AddField(const FieldPoints& points) const {
  for (std::size_t i = 0; i < points.positions.size(); ++i) {
    const Vec3d local = ToSim(mInverse * ToHost(points.positions[i]));
    const Vec3d push = mWave.DisplacementAt(local * mReciprocal);
    points.changes[i] += ToSim(mPlacement.Rotate(ToHost(push))) * points.weights[i];
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
