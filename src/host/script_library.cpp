#include "host/script_library.h"

#include <new>
#include <utility>

#include "host/noise.h"
#include "host/script_freeze.h"
#include "host/script_text.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

namespace MELDO_GLOBAL::host {

// Errors of the state jump over these functions: no local of theirs may need its destructor.
namespace {

constexpr char kVectorTable = 0;  ///< its address is the key of the vectors' metatable

double NumberAt(lua_State* state, int index) {
  if (lua_type(state, index) != LUA_TNUMBER)
    luaL_error(state, "expected a number, got %s", ScriptKindAt(state, index));
  return lua_tonumber(state, index);
}

const Vec3d& VectorAt(lua_State* state, int index) {
  const Vec3d* vector = ScriptVectorAt(state, index);
  if (!vector) luaL_error(state, "expected a vector, got %s", ScriptKindAt(state, index));
  return *vector;
}

/// A vector, or a number that stands for all three components.
Vec3d OperandAt(lua_State* state, int index) {
  if (lua_type(state, index) == LUA_TNUMBER) {
    const double number = lua_tonumber(state, index);
    return {number, number, number};
  }
  return VectorAt(state, index);
}

template <class F>
int EachComponent(lua_State* state, F f) {
  const Vec3d a = OperandAt(state, 1), b = OperandAt(state, 2);
  PushScriptVector(state, {f(a.x, b.x), f(a.y, b.y), f(a.z, b.z)});
  return 1;
}

int Sum(lua_State* state) {
  return EachComponent(state, [](double a, double b) { return a + b; });
}
int Difference(lua_State* state) {
  return EachComponent(state, [](double a, double b) { return a - b; });
}
int Product(lua_State* state) {
  return EachComponent(state, [](double a, double b) { return a * b; });
}
int Quotient(lua_State* state) {
  return EachComponent(state, [](double a, double b) { return a / b; });
}
int Opposite(lua_State* state) {
  const Vec3d& v = VectorAt(state, 1);
  PushScriptVector(state, {-v.x, -v.y, -v.z});
  return 1;
}
int AreEqual(lua_State* state) {
  const Vec3d& a = VectorAt(state, 1);
  const Vec3d& b = VectorAt(state, 2);
  lua_pushboolean(state, a.x == b.x && a.y == b.y && a.z == b.z);
  return 1;
}

int Component(lua_State* state) {
  const Vec3d& v = VectorAt(state, 1);
  const char* name = lua_type(state, 2) == LUA_TSTRING ? lua_tostring(state, 2) : "";
  if (name[0] < 'x' || name[0] > 'z' || name[1] != 0)
    return luaL_error(state, "a vector has x, y and z alone");
  lua_pushnumber(state, v[name[0] - 'x']);
  return 1;
}
int RefuseComponent(lua_State* state) {
  return luaL_error(state, "a vector can't be changed; make another with Vector(x, y, z)");
}

int MakeVector(lua_State* state) {
  PushScriptVector(state, {NumberAt(state, 1), NumberAt(state, 2), NumberAt(state, 3)});
  return 1;
}
int DotProduct(lua_State* state) {
  lua_pushnumber(state, Dot(VectorAt(state, 1), VectorAt(state, 2)));
  return 1;
}
int CrossProduct(lua_State* state) {
  PushScriptVector(state, Cross(VectorAt(state, 1), VectorAt(state, 2)));
  return 1;
}
int LengthOf(lua_State* state) {
  lua_pushnumber(state, Length(VectorAt(state, 1)));
  return 1;
}
int UnitOf(lua_State* state) {
  PushScriptVector(state, Normalised(VectorAt(state, 1)));
  return 1;
}

/// Noise(v), Noise(x, y, z), and either with a time behind.
int NoiseAt(lua_State* state) {
  static const Noise noise(0);
  const Vec3d* vector = ScriptVectorAt(state, 1);
  const Vec3d at =
      vector ? *vector : Vec3d{NumberAt(state, 1), NumberAt(state, 2), NumberAt(state, 3)};
  const int time = vector ? 2 : 4;
  lua_pushnumber(state, lua_isnoneornil(state, time)
                            ? noise.Evaluate(NoiseType::Gradient, at, 1)
                            : noise.Evaluate(NoiseType::Gradient, at, NumberAt(state, time), 1));
  return 1;
}

void MakeVectorTable(lua_State* state) {
  static constexpr luaL_Reg kOperators[] = {{"__add", Sum},         {"__sub", Difference},
                                            {"__mul", Product},     {"__div", Quotient},
                                            {"__unm", Opposite},    {"__eq", AreEqual},
                                            {"__index", Component}, {"__newindex", RefuseComponent},
                                            {nullptr, nullptr}};
  lua_newtable(state);
  luaL_setfuncs(state, kOperators, 0);
  lua_pushstring(state, "vector");
  lua_setfield(state, -2, "__name");
  lua_rawsetp(state, LUA_REGISTRYINDEX, &kVectorTable);
}

/// A length of the table at `place`: n where n is in it and n + 1 isn't, found by doubling and
/// halving. One that is read-only knows its own.
int PushLength(lua_State* state, int place) {
  if (luaL_getmetafield(state, place, kLengthField) != LUA_TNIL)
    return lua_tointeger(state, -1) != kNoLength
               ? 1
               : luaL_error(state, "a list with gaps has no length");
  const auto holds = [&](lua_Integer n) {
    const bool isThere = lua_rawgeti(state, place, n) != LUA_TNIL;
    lua_pop(state, 1);
    return isThere;
  };
  constexpr lua_Integer kMost = lua_Integer{1} << 40;
  lua_Integer in = 0, out = 1;
  while (out < kMost && holds(out)) {
    in = out;
    out *= 2;
  }
  while (out - in > 1) {
    const lua_Integer middle = in + (out - in) / 2;
    (holds(middle) ? in : out) = middle;
  }
  lua_pushinteger(state, in);
  return 1;
}
/// `#` as a power of a value of ours, behind which what is measured stands.
int LengthBehind(lua_State* state) {
  const int type = lua_type(state, 2);
  if (type == LUA_TTABLE) return PushLength(state, 2);
  if (type != LUA_TSTRING)
    return luaL_error(state, "attempt to get length of a %s value",
                      ScriptVectorAt(state, 2) ? "vector" : lua_typename(state, type));
  lua_pushinteger(state, static_cast<lua_Integer>(lua_rawlen(state, 2)));
  return 1;
}
int Values(lua_State* state) {
  const int count = lua_gettop(state);
  return count <= kMostValues
             ? count
             : luaL_error(state, "'...' stands for more than %d values", kMostValues);
}

void PushMath(lua_State* state) {
  lua_pushcfunction(state, luaopen_math);
  lua_call(state, 0, 1);
  for (const char* chance : {"random", "randomseed"}) {
    lua_pushnil(state);
    lua_setfield(state, -2, chance);
  }
}

}  // namespace

Vec3d& PushScriptVector(lua_State* state, const Vec3d& value) {
  auto* vector = new (lua_newuserdatauv(state, sizeof(Vec3d), 0)) Vec3d(value);
  lua_rawgetp(state, LUA_REGISTRYINDEX, &kVectorTable);
  lua_setmetatable(state, -2);
  return *vector;
}

const Vec3d* ScriptVectorAt(lua_State* state, int index) {
  // Scripts get hold of no other blocks than vectors.
  return lua_type(state, index) == LUA_TUSERDATA
             ? static_cast<const Vec3d*>(lua_touserdata(state, index))
             : nullptr;
}

const char* ScriptKindAt(lua_State* state, int index) {
  switch (lua_type(state, index)) {
    case LUA_TBOOLEAN: return "true or false";
    case LUA_TNUMBER: return "a number";
    case LUA_TSTRING: return "a text";
    case LUA_TTABLE: return "a table";
    case LUA_TFUNCTION: return "a function";
    case LUA_TUSERDATA: return "a vector";
    default: return "nothing";
  }
}

void PushScriptLibrary(lua_State* state) {
  MakeVectorTable(state);
  lua_pushcfunction(state, luaopen_base);
  lua_call(state, 0, 1);
  const int base = lua_gettop(state);
  static constexpr std::pair<std::string_view, lua_CFunction> kOwn[] = {
      {"Vector", MakeVector}, {"Dot", DotProduct}, {"Cross", CrossProduct},
      {"Length", LengthOf},   {"Unit", UnitOf},    {"Noise", NoiseAt}};
  for (const std::string_view name : kScriptLibrary) {
    lua_CFunction own = nullptr;
    for (const auto& [ownName, function] : kOwn)
      if (ownName == name) own = function;
    if (own)
      lua_pushcfunction(state, own);
    else if (name == "math")
      PushMath(state);
    else
      lua_getfield(state, base, name.data());
  }
  lua_remove(state, base);
}

void PushScriptOperators(lua_State* state) {
  // Pointers without a block have one metatable for all of them, and scripts find no other.
  lua_pushlightuserdata(state, nullptr);
  lua_createtable(state, 0, 1);
  lua_pushcfunction(state, LengthBehind);
  lua_setfield(state, -2, "__pow");
  lua_setmetatable(state, -2);
  lua_pushcfunction(state, Values);
}

}  // namespace MELDO_GLOBAL::host
