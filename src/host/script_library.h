// The names that every script finds: vectors with arithmetic, noise, `math`.
#pragma once
#include <array>
#include <string_view>

#include "host/vector.h"

struct lua_State;

namespace MELDO_GLOBAL::host {

/// The names in the order in which `PushScriptLibrary` pushes what they stand for.
inline constexpr std::array<std::string_view, 12> kScriptLibrary = {
    "Vector", "Dot",    "Cross", "Length", "Unit",  "Noise",
    "math",   "ipairs", "type",  "select", "error", "assert"};

/// Pushes a value for each of the names. Nothing of it reaches files, other modules, the clock,
/// chance, or addresses, and whatever runs for long or takes memory does so in the state's own
/// terms. Raises the state's errors.
void PushScriptLibrary(lua_State* state);

/// Pushes what stands under `kLengthName` and `kValuesName`: the length of a text or a list, by
/// what it holds alone, and the values behind `...`, of which there may be `kMostValues`.
void PushScriptOperators(lua_State* state);
inline constexpr int kMostValues = 250;

/// Pushes a vector, which scripts can't change.
Vec3d& PushScriptVector(lua_State* state, const Vec3d& value);
/// What messages call what stands at a place of the stack: "a number", "nothing" and so on.
const char* ScriptKindAt(lua_State* state, int index);
/// The vector at a place of the stack; null for anything else.
const Vec3d* ScriptVectorAt(lua_State* state, int index);

}  // namespace MELDO_GLOBAL::host
