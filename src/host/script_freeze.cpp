#include "host/script_freeze.h"

#include <algorithm>
#include <bit>

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

constexpr lua_Integer kNoLength = -1;

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
int KnownLength(lua_State* state) {
  if (lua_tointeger(state, lua_upvalueindex(1)) == kNoLength)
    return luaL_error(state, "a list with gaps has no length");
  lua_pushvalue(state, lua_upvalueindex(1));
  return 1;
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
  lua_pushcclosure(state, KnownLength, 1);
  lua_setfield(state, -2, "__len");
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
  return static_cast<int>(walk.watchedCount / 3);
}

void CheckFrozen(lua_State* state) {
  lua_rawgetp(state, LUA_REGISTRYINDEX, &kWatched);
  const int watched = lua_gettop(state);
  const auto count = static_cast<lua_Integer>(lua_rawlen(state, watched));
  for (lua_Integer i = 0; i < count; i += 3) {
    lua_rawgeti(state, watched, i + 1);
    lua_rawgeti(state, watched, i + 2);
    const int number = static_cast<int>(lua_tointeger(state, -1));
    lua_rawgeti(state, watched, i + 3);
    const char* name = lua_getupvalue(state, watched + 1, number);
    if (!IsSame(state, -1, -2))
      luaL_error(state,
                 "'%s' was set in a call: cells and particles come in no order, so main(op) "
                 "remembers nothing; use a local of its own",
                 name);
    lua_settop(state, watched);
  }
  lua_settop(state, watched - 1);
}

}  // namespace MELDO_GLOBAL::host
