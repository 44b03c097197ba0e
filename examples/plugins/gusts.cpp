// A plug-in with a force and a constraint:
//
//   g++ -std=c++20 -O2 -shared -fPIC -Isrc -o libgusts.so examples/plugins/gusts.cpp
//   sulva run examples/plugins/gusts.json --plugin ./libgusts.so
#include <algorithm>
#include <cmath>

#include "plugin/sulva_plugin.h"

namespace {

using namespace sulva::plugin;

/// A wind that comes and goes, and that whatever goes with it already feels less.
class Gusts : public Force {
 public:
  void Read(const Settings& settings) override {
    mWind = settings.Of("wind");
    mPeriod = settings.Number("period");
    mDrag = settings.Number("drag");
  }
  bool Prepare(const Step& step, const char*& why) override {
    if (!(mPeriod > 0)) return why = "its 'period' is 0", false;
    const double wave = std::sin(6.283185307179586 * step.time / mPeriod);
    mNow = std::max(wave, 0.0);
    return true;
  }
  Vector Evaluate(const Point& point) const override {
    return {mDrag * (mNow * mWind.x - point.velocity.x),
            mDrag * (mNow * mWind.y - point.velocity.y),
            mDrag * (mNow * mWind.z - point.velocity.z)};
  }

 private:
  Vector mWind{};
  double mPeriod = 1, mDrag = 1, mNow = 0;
};

/// Lets pass what lies above a height, more and more from there on.
class Above : public Constraint {
 public:
  void Read(const Settings& settings) override { mHeight = settings.Number("height"); }
  bool Prepare(const Step& step, const char*&) override {
    mFloor = mHeight * step.hostToMetres.y;
    return true;
  }
  bool Test(const Point& point, double& weight) const override {
    weight *= std::clamp(point.position.y - mFloor, 0.0, 1.0);
    return true;
  }

 private:
  double mHeight = 0, mFloor = 0;
};

const Parameter kGustRows[] = {
    {.name = "wind",
     .type = ParameterType::kVector,
     .vector = {3, 0, 0},
     .unit = "m/s",
     .help = "how fast and which way a gust blows at its height"},
    {.name = "period",
     .number = 1.5,
     .unit = "s",
     .help = "from one gust to the next",
     .lowest = 0},
    {.name = "drag", .number = 2, .unit = "1/s", .help = "how soon things go with it", .lowest = 0},
};
const Parameter kAboveRows[] = {
    {.name = "height", .number = 50, .unit = "host", .help = "nothing passes below"},
};
const Kind kKinds[] = {
    {.id = 10000001,
     .type = "force_gusts",
     .label = "DF::Gusts",
     .purpose = "blows by gusts",
     .parameters = kGustRows,
     .parameterCount = 3,
     .makeForce = []() -> Force* { return new Gusts; }},
    {.id = 10000002,
     .type = "constraint_above",
     .label = "CS::Above",
     .purpose = "lets others work above a height",
     .parameters = kAboveRows,
     .parameterCount = 1,
     .makeConstraint = []() -> Constraint* { return new Above; }},
};
const Library kLibrary = {.name = "gusts", .release = "1.0", .kinds = kKinds, .kindCount = 2};

}  // namespace

const Library* SulvaPlugin() { return &kLibrary; }
