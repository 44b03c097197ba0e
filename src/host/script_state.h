// A script, compiled for one worker.
#pragma once
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "host/script_family.h"

struct lua_State;

namespace MELDO_GLOBAL::host {

/// Runs the function `main(op)` of a script in Lua 5.4. A script finds what its family tells and
/// what `kScriptLibrary` names, nothing else. What it makes while it is loaded stays as it is:
/// calls can't remember anything, so that no result depends on which cells a worker has seen
/// before. It gets `kMostMemory` bytes in all, `kMostLoading` instructions of the language to load
/// and `kMostInstructions` for a call, counted in thousands; as a net below these, `kMostSeconds`
/// of processor time to compile, to load and for a call, which nothing needs that keeps to them.
/// What oversteps a limit is an error like any other.
///
/// Reads: Ierusalimschy et al., "Lua 5.4 Reference Manual", sections 2 and 4.
class ScriptState {
 public:
  static constexpr std::size_t kMostSource = std::size_t{32} << 10;
  static constexpr std::size_t kMostMemory = std::size_t{4} << 20;
  static constexpr std::size_t kMostText = std::size_t{4} << 10;
  static constexpr int kMostLoading = 1000000;
  static constexpr int kMostInstructions = 100000;
  static constexpr double kMostSeconds = 0.5;

  ScriptState(const std::string& source, const ScriptFamily& family);
  ~ScriptState();
  ScriptState(const ScriptState&) = delete;
  ScriptState& operator=(const ScriptState&) = delete;

  /// The first error; from then on nothing runs.
  const ScriptError& Error() const { return mError; }
  /// Whether the error is that it took longer than `kMostSeconds`.
  bool IsLate() const { return mIsLate; }

  void SetOp(const ScriptOp& op);
  /// Calls main once for each answer, with a column for each variable of the family, as long as
  /// there are answers. False, with an error and no answer that counts, where a call fails, gives
  /// something else than finite numbers of the kind, or has changed what it may not.
  bool Run(std::span<const ScriptColumn> told, std::span<double> answers) {
    return RunAll({told, answers, {}});
  }
  bool Run(std::span<const ScriptColumn> told, std::span<Vec3d> answers) {
    return RunAll({told, {}, answers});
  }

 private:
  struct Job {
    std::span<const ScriptColumn> told;
    std::span<double> numbers;
    std::span<Vec3d> vectors;
  };

  static void* Allocate(void* self, void* block, std::size_t before, std::size_t after);
  static ScriptState& Of(lua_State* state);

  /// Calls `function` in the state, guarded; an error becomes `mError`.
  bool Guard(int (*function)(lua_State*));
  void TakeError(bool isOutOfMemory);
  static int Load(lua_State* state);
  static int TakeOp(lua_State* state);
  static int Drive(lua_State* state);
  bool RunAll(const Job& job);
  /// Sets the variables of a call; from `vectors` on the stack holds a vector for each.
  void TellCall(lua_State* state, int setter, int vectors, std::size_t call);
  void TakeAnswer(lua_State* state, std::size_t call);
  /// Starts the count of instructions and the clock anew.
  void StartLimits(lua_State* state, int instructions);
  /// Nothing of what ran so far counts any more.
  void ResetLimits();
  void CheckLimits(lua_State* state);
  /// Whether `kMostSeconds` have passed since the first look.
  bool LookAtClock();
  static const char* NextPiece(lua_State* state, void* data, std::size_t* size);

  const ScriptFamily& mFamily;
  std::span<std::string_view>* mPieces = nullptr;  ///< of the text, while it is loaded
  const ScriptOp* mOp = nullptr;                   ///< while it is taken over
  const Job* mJob = nullptr;                       ///< while it runs
  lua_State* mState = nullptr;
  std::size_t mMemory = 0;
  int mRefusals = 0;  ///< of memory, in this call
  bool mTextTooLong = false, mIsLate = false;
  int mInstructions = 0, mMostInstructions = kMostLoading;
  double mStart = -1;  ///< processor time of the thread at the first look of a call; below 0 before
  int mWatched = 0;    ///< variables that calls could remember something in
  u32 mMainLine = 0;
  ScriptError mError;
};

}  // namespace MELDO_GLOBAL::host
