#include "host/script_freeze.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "host/types.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

namespace MELDO_GLOBAL::host {

// Errors of the state jump over these functions: no local of theirs may need its destructor.
namespace {

// What the registry of a state holds, by the addresses of these.
constexpr char kGlobalNames = 0;  ///< the globals by name
constexpr char kGlobalRules = 0;  ///< the metatable of the table that scripts see in their place
constexpr char kWatched = 0;      ///< function, number of its variable, value; and the next one

/// What messages call the key at place 2: that of a table would be an address.
const char* KeyName(lua_State* state) {
  const int type = lua_type(state, 2);
  return type == LUA_TSTRING || type == LUA_TNUMBER ? luaL_tolstring(state, 2, nullptr)
                                                    : lua_typename(state, type);
}

int RefuseGlobal(lua_State* state) {
  return luaL_error(
      state,
      "'%s' can't be set in a call: cells and particles come in no order, so main(op) "
      "remembers nothing; write 'local' before it",
      KeyName(state));
}
int RefuseField(lua_State* state) {
  return luaL_error(state,
                    "'%s' can't be set in a call: a table that was made outside of main(op) stays "
                    "as it is",
                    KeyName(state));
}
int NothingOfThatName(lua_State* state) {
  return luaL_error(state, "nothing is called '%s' here", KeyName(state));
}
/// Pushes a metatable that shows the table at `hidden`, with a length of `length`.
void PushRules(lua_State* state, int hidden, lua_Integer length = 0) {
  hidden = lua_absindex(state, hidden);
  lua_createtable(state, 0, 3);
  lua_pushvalue(state, hidden);
  lua_setfield(state, -2, "__index");
  lua_pushcfunction(state, RefuseField);
  lua_setfield(state, -2, "__newindex");
  lua_pushinteger(state, length);
  lua_setfield(state, -2, kLengthField);
}

/// The walk through all that a script made: what is still to be looked at stands in a list, so that
/// deep structures take no deep calls.
struct Walk {
  lua_State* state;
  int seen, list, watched;  ///< places on the stack
  lua_Integer count = 0, watchedCount = 0;

  /// Takes the value on top of the stack, which goes.
  void Take() {
    const int type = lua_type(state, -1);
    if (type == LUA_TTABLE || (type == LUA_TFUNCTION && !lua_iscfunction(state, -1))) {
      lua_pushvalue(state, -1);
      const bool isNew = lua_rawget(state, seen) == LUA_TNIL;
      lua_pop(state, 1);
      if (isNew) {
        lua_pushvalue(state, -1);
        lua_pushboolean(state, true);
        lua_rawset(state, seen);
        lua_rawseti(state, list, ++count);
        return;
      }
    }
    lua_pop(state, 1);
  }

  /// Moves what the table at `table` holds to a hidden one. A list with gaps has no length
  /// from then on: which one the language takes depends on chance.
  void Freeze(int table) {
    lua_Integer places = 0, last = 0;
    lua_newtable(state);
    const int hidden = lua_gettop(state);
    lua_pushnil(state);
    while (lua_next(state, table)) {
      if (lua_isinteger(state, -2) && lua_tointeger(state, -2) > 0) {
        ++places;
        last = std::max(last, lua_tointeger(state, -2));
      }
      lua_pushvalue(state, -2);
      Take();
      lua_pushvalue(state, -1);
      Take();
      lua_pushvalue(state, -2);
      lua_insert(state, -2);
      lua_rawset(state, hidden);
      lua_pushvalue(state, -1);
      lua_pushnil(state);
      lua_rawset(state, table);
    }
    PushRules(state, hidden, places == last ? last : kNoLength);
    lua_setmetatable(state, table);
    lua_settop(state, hidden - 1);
  }

  void MarkVariable(int function, int i) {
    lua_pushboolean(state, true);
    lua_rawsetp(state, seen, lua_upvalueid(state, function, i));
  }

  void Watch(int function) {
    for (int i = 1; lua_getupvalue(state, function, i); ++i) {
      const bool isNew = lua_rawgetp(state, seen, lua_upvalueid(state, function, i)) == LUA_TNIL;
      lua_pop(state, 1);
      if (!isNew) {
        lua_pop(state, 1);
        continue;
      }
      MarkVariable(function, i);
      lua_pushvalue(state, function);
      lua_rawseti(state, watched, ++watchedCount);
      lua_pushinteger(state, i);
      lua_rawseti(state, watched, ++watchedCount);
      lua_pushvalue(state, -1);
      lua_rawseti(state, watched, ++watchedCount);
      Take();
    }
  }
};

/// Whether two values are the same one, numbers by kind and to the last bit.
bool IsSame(lua_State* state, int a, int b) {
  if (lua_type(state, a) != LUA_TNUMBER || lua_type(state, b) != LUA_TNUMBER)
    return lua_rawequal(state, a, b);
  if (lua_isinteger(state, a) != lua_isinteger(state, b)) return false;
  if (lua_isinteger(state, a)) return lua_tointeger(state, a) == lua_tointeger(state, b);
  return std::bit_cast<u64>(lua_tonumber(state, a)) == std::bit_cast<u64>(lua_tonumber(state, b));
}

/// The name of the variable at `watched` if it isn't as it was, else null.
const char* ChangedName(lua_State* state, int watched) {
  const auto variable = static_cast<int>(lua_tointeger(state, watched + 1));
  const char* name = lua_getupvalue(state, watched, variable);
  const bool isSame = IsSame(state, -1, watched + 2);
  lua_pop(state, 1);
  return isSame ? nullptr : name;
}

}  // namespace

void PushScriptGlobals(lua_State* state) {
  lua_newtable(state);
  lua_createtable(state, 0, 1);
  lua_pushcfunction(state, NothingOfThatName);
  lua_setfield(state, -2, "__index");
  lua_setmetatable(state, -2);
  lua_pushvalue(state, -1);
  lua_rawsetp(state, LUA_REGISTRYINDEX, &kGlobalNames);
  PushRules(state, -1);
  lua_pushvalue(state, -2);
  lua_setfield(state, -2, "__newindex");
  lua_pushvalue(state, -1);
  lua_rawsetp(state, LUA_REGISTRYINDEX, &kGlobalRules);
  lua_newtable(state);
  lua_replace(state, -3);
  lua_setmetatable(state, -2);
}

void PushGlobal(lua_State* state, const char* name) {
  lua_rawgetp(state, LUA_REGISTRYINDEX, &kGlobalNames);
  lua_pushstring(state, name);
  lua_rawget(state, -2);
  lua_remove(state, -2);
}

void PushReadOnly(lua_State* state, int index) {
  index = lua_absindex(state, index);
  lua_newtable(state);
  PushRules(state, index);
  lua_setmetatable(state, -2);
}

int FreezeScript(lua_State* state, int setter, int told) {
  luaL_checkstack(state, 20, nullptr);
  const int top = lua_gettop(state);
  lua_newtable(state);
  lua_newtable(state);
  lua_newtable(state);
  Walk walk{state, top + 1, top + 2, top + 3};
  for (int i = 1; i <= told; ++i) walk.MarkVariable(setter, i);

  lua_rawgetp(state, LUA_REGISTRYINDEX, &kGlobalRules);
  lua_pushcfunction(state, RefuseGlobal);
  lua_setfield(state, -2, "__newindex");
  lua_pop(state, 1);
  lua_rawgetp(state, LUA_REGISTRYINDEX, &kGlobalNames);
  lua_pushnil(state);
  while (lua_next(state, -2)) walk.Take();
  for (lua_Integer next = 1; next <= walk.count; ++next) {
    lua_rawgeti(state, walk.list, next);
    const int value = lua_gettop(state);
    // A table that has rules already is the script's own table of globals.
    if (lua_isfunction(state, value))
      walk.Watch(value);
    else if (!lua_getmetatable(state, value))
      walk.Freeze(value);
    lua_settop(state, value - 1);
  }
  lua_pushvalue(state, walk.watched);
  lua_rawsetp(state, LUA_REGISTRYINDEX, &kWatched);
  lua_settop(state, top);
  return static_cast<int>(walk.watchedCount / kWatchedValues);
}

void PushWatched(lua_State* state, int count) {
  lua_rawgetp(state, LUA_REGISTRYINDEX, &kWatched);
  const int watched = lua_gettop(state);
  luaL_checkstack(state, kWatchedValues * count, nullptr);
  for (int i = 1; i <= kWatchedValues * count; ++i) lua_rawgeti(state, watched, i);
  lua_remove(state, watched);
}

void CheckWatched(lua_State* state, int watched, int count) {
  // The order of the variables is chance: of several the first one by its name is told.
  const char* first = nullptr;
  for (int i = 0; i < count; ++i)
    if (const char* name = ChangedName(state, watched + kWatchedValues * i))
      if (!first || std::strcmp(name, first) < 0) first = name;
  if (first)
    luaL_error(state,
               "'%s' was set in a call: cells and particles come in no order, so main(op) "
               "remembers nothing; use a local of its own",
               first);
}

}  // namespace MELDO_GLOBAL::host
