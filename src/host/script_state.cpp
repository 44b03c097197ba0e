#include "host/script_state.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "host/script_freeze.h"
#include "host/script_library.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

namespace MELDO_GLOBAL::host {

// Errors of the state jump over the functions that it calls: no local of theirs may need its
// destructor.

namespace {

// What the registry of a state holds, by the addresses of these.
constexpr char kMain = 0, kSetter = 0, kOpTable = 0, kOpFields = 0;

constexpr int kInstructionsPerLook = 1000;
constexpr std::size_t kBytesPerPiece = 1024;
/// What calls have made is collected between them when it comes to so many bytes, and never while
/// one runs.
constexpr std::size_t kMostLeftOver = ScriptState::kMostInUsed / 2;
/// About what the library puts before the characters of a text.
constexpr std::size_t kTextHead = 32;
constexpr const char* kChunk = "=script";

void Push(lua_State* state, const char& key) { lua_rawgetp(state, LUA_REGISTRYINDEX, &key); }
void Keep(lua_State* state, const char& key) { lua_rawsetp(state, LUA_REGISTRYINDEX, &key); }

double ThreadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// The line in front of a script, on the first line of which it ends: all that a script finds are
/// locals of its file, which functions reach faster than globals. The first value that it gets
/// takes a function through which what is told is set.
std::string Opening(const ScriptFamily& family) {
  std::string told, all;
  for (const std::string_view name : family.variables)
    told.append(told.empty() ? "" : ",").append(name);
  for (const std::string_view name : kScriptLibrary) all.append(",").append(name);
  for (const std::string_view name : {kLengthName, kValuesName}) all.append(",").append(name);
  return fmt::format("local _keep,{}{}=...;_keep(function() return {} end)_keep=nil;", told, all,
                     told);
}

int KeepSetter(lua_State* state) {
  Push(state, kSetter);
  // The values of the file, which `...` shows to a script, are no way to take its place.
  if (!lua_isnil(state, -1)) return luaL_error(state, "what is told can't be set by a script");
  lua_settop(state, 1);
  Keep(state, kSetter);
  return 0;
}

/// Splits "script:3: text"; without a line the text is whole.
ScriptError SplitError(std::string_view message) {
  constexpr std::string_view kPlace = "script:";
  constexpr std::size_t kLongest = 400;
  ScriptError error;
  if (message.starts_with(kPlace)) {
    const char* end = message.data() + message.size();
    const auto [stop, failure] = std::from_chars(message.data() + kPlace.size(), end, error.line);
    if (failure == std::errc() && std::string_view(stop, end).starts_with(": "))
      message = {stop + 2, end};
  }
  error.text = message.substr(0, kLongest);
  for (char& c : error.text)
    if (c < ' ' || c > '~') c = c == '\n' ? ' ' : '?';
  if (error.text.empty()) error.text = "it raised an error without a text";
  return error;
}

}  // namespace

ScriptState& ScriptState::Of(lua_State* state) {
  return **static_cast<ScriptState**>(lua_getextraspace(state));
}

void* ScriptState::Allocate(void* data, void* block, std::size_t before, std::size_t after) {
  auto& self = *static_cast<ScriptState*>(data);
  // Without a block `before` tells what for.
  const std::size_t held = block ? before : 0;
  if (after == 0) {
    std::free(block);
    self.mMemory -= held;
    return nullptr;
  }
  if (after > held) {
    if (!block && before == LUA_TSTRING && after > kMostText + kTextHead)
      self.mIsTextTooLong = true;
    if (after > self.mMostMade - self.mMade) self.mHasMadeTooMuch = true;
    if (self.mIsTextTooLong || self.mHasMadeTooMuch) return nullptr;
    self.mMade += after;
  }
  void* moved = std::realloc(block, after);
  if (!moved) return nullptr;
  self.mMemory += after - held;
  self.mPeak = std::max(self.mPeak, self.mMemory);
  return moved;
}

ScriptState::ScriptState(const ScriptText& text, const ScriptFamily& family)
    : mFamily(family), mError(text.Error()) {
  if (mError) return;
  mState = lua_newstate(Allocate, this);
  if (!mState) {
    mError.text = "there is no memory for it";
    return;
  }
  *static_cast<ScriptState**>(lua_getextraspace(mState)) = this;
  const std::string opening = Opening(family);
  std::string_view pieces[] = {opening, text.Text()};
  std::span<std::string_view> unread = pieces;
  mPieces = &unread;
  Guard(Load);
  mPieces = nullptr;
}

ScriptState::~ScriptState() {
  if (mState) lua_close(mState);
}

bool ScriptState::Guard(int (*function)(lua_State*)) {
  lua_settop(mState, 0);
  lua_pushcfunction(mState, function);
  const int status = lua_pcall(mState, 0, 0, 0);
  if (status != LUA_OK) TakeError(status);
  lua_settop(mState, 0);
  return status == LUA_OK;
}

void ScriptState::TakeError(int status) {
  const bool isText = lua_type(mState, -1) == LUA_TSTRING;
  // The compiler's error of memory has become one with a text.
  const bool isOut = status == LUA_ERRMEM ||
                     (isText && std::strcmp(lua_tostring(mState, -1), "not enough memory") == 0);
  if (isOut && (mIsTextTooLong || mHasMadeTooMuch)) {
    mError = {mIsTextTooLong ? fmt::format("it makes a text of more than {} bytes", kMostText)
                             : fmt::format("it makes more than {} bytes", mMostMade),
              mMainLine};
    return;
  }
  if (!isText) {
    mError = {fmt::format("it raised an error that is no text but {}", ScriptKindAt(mState, -1)),
              mMainLine};
    return;
  }
  std::size_t size = 0;
  const char* text = lua_tolstring(mState, -1, &size);
  mError = SplitError(ScriptText::AsWritten({text, size}));
  if (mError.line == 0) mError.line = mMainLine;
}

void ScriptState::StartLimits(lua_State* state, int instructions, std::size_t bytes) {
  mInstructions = 0;
  mMostInstructions = instructions;
  mLeftOver += mMade;
  mMade = 0;
  mMostMade = bytes;
  mIsTextTooLong = mHasMadeTooMuch = false;
  mStart = -1;
  // Counts from here, however far the count of the last call has come.
  lua_sethook(
      state, [](lua_State* s, lua_Debug*) { Of(s).CheckLimits(s); }, LUA_MASKCOUNT,
      kInstructionsPerLook);
}

bool ScriptState::LookAtClock() {
  const double now = ThreadSeconds();
  if (mStart < 0) mStart = now;
  mIsLate = now - mStart > kMostSeconds;
  return mIsLate;
}

void ScriptState::CheckLimits(lua_State* state) {
  mInstructions += kInstructionsPerLook;
  const bool isTooLate = LookAtClock();
  if (mInstructions <= mMostInstructions && !isTooLate) return;
  luaL_where(state, 0);
  if (isTooLate)
    lua_pushfstring(state, "it takes longer than %f s", kMostSeconds);
  else
    lua_pushfstring(state, "it takes more than %d instructions", mMostInstructions);
  lua_concat(state, 2);
  lua_error(state);
}

// ---- loading ----------------------------------------------------------------------------------

const char* ScriptState::NextPiece(lua_State* state, void* data, std::size_t* size) {
  auto& pieces = *static_cast<std::span<std::string_view>*>(data);
  // No instruction counts while a text is compiled, which may take the square of its length.
  if (Of(state).LookAtClock())
    luaL_error(state, "it takes longer than %f s to compile", kMostSeconds);
  while (!pieces.empty() && pieces.front().empty()) pieces = pieces.subspan(1);
  if (pieces.empty()) return *size = 0, nullptr;
  const std::string_view piece = pieces.front().substr(0, kBytesPerPiece);
  pieces.front().remove_prefix(piece.size());
  *size = piece.size();
  return piece.data();
}

int ScriptState::Load(lua_State* state) {
  ScriptState& self = Of(state);
  luaL_checkstack(state, 100, nullptr);
  // The compiler gives its errors back, with no memory among them.
  if (lua_load(state, NextPiece, self.mPieces, kChunk, "t") != LUA_OK) return lua_error(state);
  const int chunk = 1;
  PushScriptGlobals(state);
  lua_setupvalue(state, chunk, 1);
  lua_pushcfunction(state, KeepSetter);
  for (std::size_t i = 0; i < self.mFamily.variables.size(); ++i) lua_pushnil(state);
  PushScriptLibrary(state);
  PushScriptOperators(state);
  self.StartLimits(state, kMostLoading, kMostLoaded);
  lua_call(state, lua_gettop(state) - chunk, 0);

  PushGlobal(state, "main");
  if (!lua_isfunction(state, -1) || lua_iscfunction(state, -1))
    return luaL_error(state, "it has no function main(op)");
  lua_Debug debug;
  lua_pushvalue(state, -1);
  lua_getinfo(state, ">S", &debug);
  self.mMainLine = static_cast<u32>(debug.linedefined);
  Keep(state, kMain);
  lua_newtable(state);
  lua_pushvalue(state, -1);
  Keep(state, kOpFields);
  PushReadOnly(state, -1);
  Keep(state, kOpTable);
  Push(state, kSetter);
  self.mWatched =
      FreezeScript(state, lua_gettop(state), static_cast<int>(self.mFamily.variables.size()));
  lua_settop(state, 0);
  lua_gc(state, LUA_GCSTOP);
  self.Collect(state);
  return 0;
}

int ScriptState::TakeOp(lua_State* state) {
  const ScriptOp& op = *Of(state).mOp;
  Push(state, kOpFields);
  lua_pushlstring(state, op.name.data(), op.name.size());
  lua_setfield(state, -2, "name");
  lua_pushnumber(state, op.time);
  lua_setfield(state, -2, "time");
  lua_pushnumber(state, op.step);
  lua_setfield(state, -2, "step");
  lua_pushinteger(state, op.frame);
  lua_setfield(state, -2, "frame");
  return 0;
}

void ScriptState::SetOp(const ScriptOp& op) {
  if (mError) return;
  StartLimits(mState, kMostInstructions, kMostMade);
  mOp = &op;
  Guard(TakeOp);
  mOp = nullptr;
}

// ---- running ----------------------------------------------------------------------------------

std::size_t ScriptState::RunAll(Job job) {
  if (mError || mIsSpent) return job.done;
  mJob = &job;
  const bool isDone = Guard(Drive);
  mJob = nullptr;
  mIsSpent = !isDone && mHasMadeTooMuch && mMostMade < kMostMade;
  if (mIsSpent) mError = {};
  return job.done;
}

int ScriptState::Drive(lua_State* state) {
  ScriptState& self = Of(state);
  Job& job = *self.mJob;
  const std::size_t calls = job.numbers.size() + job.vectors.size();
  self.StartLimits(state, kMostInstructions, kMostMade);
  luaL_checkstack(state, LUA_MINSTACK + static_cast<int>(job.told.size()), nullptr);
  Push(state, kSetter);
  Push(state, kMain);
  Push(state, kOpTable);
  const int setter = 1, main = 2, op = 3;
  // Since calls remember nothing, one vector a variable serves them all.
  for (std::size_t i = 0; i < job.told.size(); ++i) PushScriptVector(state, {});
  const int watched = lua_gettop(state) + 1;
  PushWatched(state, self.mWatched);
  const int top = lua_gettop(state);
  for (; job.done < calls; ++job.done) {
    self.TellCall(state, setter, op + 1, job.done);
    lua_pushvalue(state, main);
    lua_pushvalue(state, op);
    self.StartCall(state);
    lua_call(state, 1, 1);
    self.TakeAnswer(state, job.done);
    CheckWatched(state, watched, self.mWatched);
    lua_settop(state, top);
  }
  return 0;
}

void ScriptState::StartCall(lua_State* state) {
  if (mLeftOver + mMade > kMostLeftOver) Collect(state);
  StartLimits(state, kMostInstructions, mIsUsed ? kMostInUsed - mLeftOver - mMade : kMostMade);
  mIsUsed = true;
}

void ScriptState::Collect(lua_State* state) {
  lua_gc(state, LUA_GCCOLLECT);
  mLeftOver = mMade = 0;
}

void ScriptState::TellCall(lua_State* state, int setter, int vectors, std::size_t call) {
  const int count = static_cast<int>(mJob->told.size());
  for (int i = 0; i < count; ++i) {
    const ScriptColumn& column = mJob->told[i];
    if (const auto* numbers = std::get_if<std::span<const double>>(&column)) {
      lua_pushnumber(state, (*numbers)[call]);
    } else if (const auto* wholes = std::get_if<std::span<const i32>>(&column)) {
      lua_pushinteger(state, (*wholes)[call]);
    } else if (const auto* places = std::get_if<std::span<const Vec3d>>(&column)) {
      *static_cast<Vec3d*>(lua_touserdata(state, vectors + i)) = (*places)[call];
      lua_pushvalue(state, vectors + i);
    }
    lua_setupvalue(state, setter, i + 1);
  }
}

void ScriptState::TakeAnswer(lua_State* state, std::size_t call) {
  const bool isVectorDue = !mJob->vectors.empty();
  const Vec3d* vector = ScriptVectorAt(state, -1);
  const bool isNumber = lua_type(state, -1) == LUA_TNUMBER;
  if (isVectorDue ? !vector : !isNumber) {
    luaL_error(state, "main(op) gave %s; expected %s", ScriptKindAt(state, -1),
               isVectorDue ? "a vector" : "a number");
  }
  const Vec3d answer = isVectorDue ? *vector : Vec3d{lua_tonumber(state, -1), 0, 0};
  if (!std::isfinite(answer.x) || !std::isfinite(answer.y) || !std::isfinite(answer.z))
    luaL_error(state, "main(op) gave a number that is not finite");
  if (isVectorDue)
    mJob->vectors[call] = answer;
  else
    mJob->numbers[call] = answer.x;
}

}  // namespace MELDO_GLOBAL::host
