// The script of an object.
#pragma once
#include <string>

#include "framework/ibase.h"
#include "host/script_runner.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Compiles and runs the script of a node for its object. Where it doesn't compile, or a call of it
/// fails, the object sleeps and tells why and where, until the source changes or the simulation
/// starts anew.
class ScriptPart : public ScenePart {
 public:
  static constexpr i32 kSourceRow = 9002;

  /// Gives an object, which owns it, its script.
  static ScriptPart& AddTo(iBase& owner, const host::ScriptFamily& family);
  ScriptPart(iBase& owner, const host::ScriptFamily& family) : mOwner(owner), mRunner(family) {}

  /// The row of the source; `help` says what main(op) is told and what it gives.
  static host::ParameterRow Row(const host::ScriptFamily& family, std::string source,
                                std::string_view help);

  /// Makes ready for a run of a stage, with the time as it stands. False, told by `Deactivate`.
  bool Open(const std::string& source);
  /// As `ScriptRunner::Run`; false, without an error, where the user has broken off.
  template <class Answer>
  bool Run(u32 worker, std::span<const host::ScriptColumn> told, std::span<Answer> answers) {
    return !mOwner.IsCancelled() && mRunner.Run(worker, told, answers);
  }
  /// Behind the workers: where a call has failed, the object falls asleep.
  void Close();
  /// Whether it sleeps.
  bool HasFailed() const { return !mFailure.empty(); }

  void Reset() override;
  double Memory() const override { return mRunner.Memory(); }
  void Persist(StateArchive& archive) override;

 private:
  /// Keeps the error of the runner with its place, if there is one.
  void NoteError();

  iBase& mOwner;
  host::ScriptRunner mRunner;
  std::string mSource;
  std::string mFailure;  ///< why it sleeps; empty while it doesn't
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
