// A script, compiled for one worker.
#pragma once
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "host/script_family.h"
#include "host/script_text.h"

struct lua_State;

namespace MELDO_GLOBAL::host {

/// Runs the function `main(op)` of a script in Lua 5.4. A script finds what its family tells and
/// what `kScriptLibrary` names, nothing else. What it makes while it is loaded stays as it is:
/// calls can't remember anything, so that no result depends on which cells a worker has seen
/// before.
///
/// What is made is counted in bytes whether or not it lasts, up to `kMostLoaded` to load and
/// `kMostMade` in a call; instructions of the language, in thousands, up to `kMostLoading` and
/// `kMostInstructions`. What oversteps a limit is an error like any other. Far below these a net of
/// `kMostSeconds` of processor time, to compile, to load and for a call, holds what no count tells,
/// such as keys that were chosen to collide.
///
/// A call of which that is left over that earlier ones have made, texts and room on the stack,
/// needs to make less. So one that comes to `kMostInUsed` is left to a new state, where it has
/// nothing to begin with.
///
/// Reads: Ierusalimschy et al., "Lua 5.4 Reference Manual", sections 2 and 4.
class ScriptState {
 public:
  static constexpr std::size_t kMostLoaded = std::size_t{8} << 20;
  static constexpr std::size_t kMostMade = std::size_t{4} << 20;
  static constexpr std::size_t kMostInUsed = std::size_t{1} << 20;
  static constexpr std::size_t kMostText = std::size_t{1} << 10;
  static constexpr int kMostLoading = 1000000;
  static constexpr int kMostInstructions = 100000;
  static constexpr double kMostSeconds = 1;

  ScriptState(const ScriptText& text, const ScriptFamily& family);
  ~ScriptState();
  ScriptState(const ScriptState&) = delete;
  ScriptState& operator=(const ScriptState&) = delete;

  /// The first error; from then on nothing runs.
  const ScriptError& Error() const { return mError; }
  /// Whether the error is that it took longer than `kMostSeconds`.
  bool IsLate() const { return mIsLate; }
  /// The most bytes that it has held.
  std::size_t Peak() const { return mPeak; }

  void SetOp(const ScriptOp& op);
  /// Calls main once for each answer from `first` on, with a column for each variable of the
  /// family, as long as there are answers. Gives the number of answers that are there. Fewer than
  /// all are there, with an error, where a call fails, gives something else than finite numbers of
  /// the kind, or has changed what it may not; without one, where a new state has to go on.
  std::size_t Run(std::span<const ScriptColumn> told, std::span<double> answers,
                  std::size_t first = 0) {
    return RunAll({told, answers, {}, first});
  }
  std::size_t Run(std::span<const ScriptColumn> told, std::span<Vec3d> answers,
                  std::size_t first = 0) {
    return RunAll({told, {}, answers, first});
  }

 private:
  struct Job {
    std::span<const ScriptColumn> told;
    std::span<double> numbers;
    std::span<Vec3d> vectors;
    std::size_t done = 0;  ///< answers that are there
  };

  static void* Allocate(void* self, void* block, std::size_t before, std::size_t after);
  static ScriptState& Of(lua_State* state);

  /// Calls `function` in the state, guarded; an error becomes `mError`.
  bool Guard(int (*function)(lua_State*));
  void TakeError(int status);
  static int Load(lua_State* state);
  static int TakeOp(lua_State* state);
  static int Drive(lua_State* state);
  std::size_t RunAll(Job job);
  /// Sets the limits of a call.
  void StartCall(lua_State* state);
  /// Frees what calls have left over.
  void Collect(lua_State* state);
  /// Sets the variables of a call; from `vectors` on the stack holds a vector for each.
  void TellCall(lua_State* state, int setter, int vectors, std::size_t call);
  void TakeAnswer(lua_State* state, std::size_t call);
  /// Starts all counts anew.
  void StartLimits(lua_State* state, int instructions, std::size_t bytes);
  void CheckLimits(lua_State* state);
  /// Whether `kMostSeconds` have passed since the first look.
  bool LookAtClock();
  static const char* NextPiece(lua_State* state, void* data, std::size_t* size);

  const ScriptFamily& mFamily;
  std::span<std::string_view>* mPieces = nullptr;  ///< of the text, while it is loaded
  const ScriptOp* mOp = nullptr;                   ///< while it is taken over
  Job* mJob = nullptr;                             ///< while it runs
  lua_State* mState = nullptr;
  std::size_t mMemory = 0, mPeak = 0;  ///< bytes held
  std::size_t mMade = 0, mMostMade = kMostLoaded;
  std::size_t mLeftOver = 0;  ///< bytes made in calls since they were last collected
  bool mIsUsed = false;       ///< a call has begun
  bool mIsSpent = false;      ///< a new one has to go on
  bool mIsTextTooLong = false, mHasMadeTooMuch = false, mIsLate = false;
  int mInstructions = 0, mMostInstructions = kMostLoading;
  double mStart = -1;  ///< processor time of the thread at the first look of a call; below 0 before
  int mWatched = 0;    ///< variables that calls could remember something in
  u32 mMainLine = 0;
  ScriptError mError;
};

}  // namespace MELDO_GLOBAL::host
