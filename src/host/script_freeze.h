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

/// Makes everything read-only that calls could reach and remember something in: tables by refusing
/// to be changed, variables outside of functions by `CheckFrozen`. The first `told` variables of
/// the function at `setter` are others' to change. Gives the number of variables to be looked at.
int FreezeScript(lua_State* state, int setter, int told);
/// Raises an error if a call has changed such a variable.
void CheckFrozen(lua_State* state);

}  // namespace MELDO_GLOBAL::host
