// The interface of plug-ins: forces and constraints of a user's own, in a shared library.
//
// A library is compiled against this header alone and exports one function,
//
//   extern "C" const sulva::plugin::Library* SulvaPlugin() { return &library; }
//
// which tells what kinds of nodes it brings. `sulva run scene.json --plugin ./liblibrary.so` then
// knows them as its own: by name in scene files, in `sulva nodes`, in links and in messages.
// What the library hands over stays as it is until the program ends. Nothing may throw.
#pragma once
#include <cstdint>
#include <limits>

namespace sulva::plugin {

/// Rises when something here changes; a library of another version is refused.
inline constexpr std::uint32_t kInterfaceVersion = 1;

struct Vector {
  double x = 0, y = 0, z = 0;
};

enum class ParameterType : std::int32_t { kReal, kWhole, kBool, kVector, kText };

/// A parameter of a kind: scene files give it by its name.
struct Parameter {
  const char* name = nullptr;  ///< words in lower case with underscores between them
  ParameterType type = ParameterType::kReal;
  double number = 0;      ///< default of a real, a whole number or a bool
  Vector vector{};        ///< default of a vector
  const char* text = "";  ///< default of a text
  const char* unit = "";
  const char* help = "";  ///< one clause
  double lowest = -std::numeric_limits<double>::infinity();
  double highest = std::numeric_limits<double>::infinity();
};

/// What a node's parameters are set to in this frame.
class Settings {
 public:
  /// Of a real, a whole number or a bool (0 and 1); 0 where no parameter has the name.
  virtual double Number(const char* name) const = 0;
  virtual Vector Of(const char* name) const = 0;
  /// Valid during the call of `Read` that it is told in.
  virtual const char* Text(const char* name) const = 0;

 protected:
  ~Settings() = default;
};

/// A step of the simulation. Lengths in metres, times in seconds, unless they say otherwise.
struct Step {
  double time = 0;
  double duration = 0;
  std::int32_t frame = 0;
  double cellSize = 0;
  Vector hostToMetres{};  ///< a length in host units times this, by axis, is one in metres
  Vector offset{};        ///< where the node stands, host units
  Vector axes[3];         ///< its axes, with its scale
};

/// A point that is asked about: a cell, a particle, or a mere place.
struct Point {
  std::uint32_t worker = 0;  ///< which of the workers that ask at a time
  Vector position{};         ///< metres
  Vector hostPosition{};     ///< host units
  Vector velocity{};         ///< of the fluid or of the particle, m/s; 0 of a mere place
  double weight = 1;         ///< what callers, the time window and constraints have left of 1

  std::int32_t cell = -1;             ///< of a cell: its index, x fastest
  std::int32_t faces[3] = {0, 0, 0};  ///< the indices of its low faces
  double open[3] = {1, 1, 1};         ///< and how much of them is open

  std::int32_t particle = -1;      ///< of a particle: its row in its group
  std::int32_t particleId = -1;    ///< its id, the same all its life
  std::int32_t particleKind = -1;  ///< 0 passive, 1 vorticity, 2 liquid, 3 diffuse
};

/// What acts for one node. `Read` and `Prepare` are called on one thread.
class Actor {
 public:
  virtual ~Actor() = default;
  /// Takes the node's parameters, at every frame.
  virtual void Read(const Settings&) {}
  /// Makes ready for a step; false leaves the node out of it, and `why`, a clause that lasts as
  /// long as the program, then says why.
  virtual bool Prepare(const Step&, const char*& /*why*/) { return true; }
};

/// A force: what it answers is an acceleration in m/s^2. Lengths of steps and weights are seen to.
class Force : public Actor {
 public:
  /// Called by all workers at once.
  virtual Vector Evaluate(const Point& point) const = 0;
  /// Behind the last call of a step, on one thread.
  virtual void Finish() {}
};

/// A constraint: it changes the weight of a point.
class Constraint : public Actor {
 public:
  /// Changes `weight`, which is what others have left. True lets the node's own range (from
  /// `input_low` on) make a factor of it. Called by all workers at once; `Prepare` once for all who
  /// ask in a stage.
  virtual bool Test(const Point& point, double& weight) const = 0;
};

/// Where a force acts.
enum Side : std::uint32_t { kFluids = 1, kParticles = 2 };

/// A kind of node, a force or a constraint: it makes one of the two.
struct Kind {
  std::int32_t id = 0;          ///< a number that no other kind has, from 10000000 on
  const char* type = nullptr;   ///< its name in scene files
  const char* label = nullptr;  ///< its name in lists, such as "PF::Whirl"
  const char* purpose = "";     ///< what it is for, in a clause
  std::uint32_t sides = kFluids | kParticles;  ///< of a force
  const Parameter* parameters = nullptr;
  std::int32_t parameterCount = 0;
  Force* (*makeForce)() = nullptr;
  Constraint* (*makeConstraint)() = nullptr;
};

struct Library {
  std::uint32_t interfaceVersion = kInterfaceVersion;
  const char* name = nullptr;
  const char* release = "";  ///< of the library: a run goes on with the one that it began with
  const Kind* kinds = nullptr;
  std::int32_t kindCount = 0;
};

}  // namespace sulva::plugin

extern "C" const sulva::plugin::Library* SulvaPlugin();
