// What a script made while it was loaded, kept as it is.
#pragma once

struct lua_State;

namespace MELDO_GLOBAL::host {

/// Pushes the table of the globals of a script, which takes what it defines until `FreezeScript`;
/// to read a name that nothing has is an error.
void PushScriptGlobals(lua_State* state);
/// Pushes a global; nil where there is none.
void PushGlobal(lua_State* state, const char* name);
/// Pushes a table that shows what the one at `index` holds, and refuses to be changed.
void PushReadOnly(lua_State* state, int index);

/// Under which name the metatable of a table that is read-only has its length, `kNoLength` where it
/// is a list with gaps.
inline constexpr const char* kLengthField = "length";
inline constexpr int kNoLength = -1;

/// Makes everything read-only that calls could reach and remember something in: tables by refusing
/// to be changed, variables outside of functions by `CheckWatched`. The first `told` variables of
/// the function at `setter` are others' to change. Gives the number of variables to be looked at.
int FreezeScript(lua_State* state, int setter, int told);
/// Pushes what `CheckWatched` looks at, `kWatchedValues` values for each of `count` variables.
void PushWatched(lua_State* state, int count);
inline constexpr int kWatchedValues = 3;
/// Raises an error if a call has changed such a variable; their values stand from `watched` on.
void CheckWatched(lua_State* state, int watched, int count);

}  // namespace MELDO_GLOBAL::host
