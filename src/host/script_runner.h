// The script of an object, for all its workers.
#pragma once
#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "host/script_state.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL::host {

/// Compiles a script and runs it in one state a worker. What a call gives depends on what it is
/// told alone, so that results depend neither on the threads nor on what ran before.
class ScriptRunner {
 public:
  explicit ScriptRunner(const ScriptFamily& family) : mFamily(family) {}

  /// Takes a source, unless it is the one that it has. False, with an error, where it doesn't
  /// compile or has failed before.
  bool Compile(const std::string& source);
  /// Forgets what was compiled, and what failed.
  void Free();
  /// What `op` shows from now on; between runs of the workers.
  void SetOp(const ScriptOp& op);
  /// As `ScriptState::Run`, in the state of a worker. Each of the workers may run at a time.
  template <class Answer>
  bool Run(u32 worker, std::span<const ScriptColumn> told, std::span<Answer> answers) {
    ScriptState* state = StateOf(worker);
    for (std::size_t done = 0; state && !state->Error(); state = NewStateOf(worker)) {
      done = state->Run(told, answers, done);
      if (done == answers.size()) return true;
      if (state->IsLate()) mIsLate = true;
      if (state->Error()) return false;
    }
    return false;
  }
  /// The error of the first worker that has one, or none; behind the workers.
  ScriptError Error() const;
  /// Bytes that its states take once each worker has one, as far as they are known: each what the
  /// largest has held.
  double Memory() const;

 private:
  /// Null once a worker was late: each of them would lose as much time. Every other failure is its
  /// worker's own, so that what is left of a step doesn't depend on who came first.
  ScriptState* StateOf(u32 worker);
  /// The state of a worker, made anew.
  ScriptState* NewStateOf(u32 worker);

  struct Slot {
    std::unique_ptr<ScriptState> state;
    u32 opNumber = 0;      ///< of the `op` that it has
    std::size_t peak = 0;  ///< bytes that those before it have held
  };
  const ScriptFamily& mFamily;
  std::string mSource;
  std::optional<ScriptText> mText;  ///< of the source
  std::array<Slot, kMaxWorkers> mSlots;
  ScriptOp mOp;
  u32 mOpNumber = 0;
  std::atomic<bool> mIsLate = false;
};

}  // namespace MELDO_GLOBAL::host
