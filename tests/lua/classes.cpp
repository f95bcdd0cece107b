// Direct-object classes for the Lua test scripts, published as T.Shape, T.Circle, ...:
// Shape has methods and properties (one read-only, one write-only); Circle inherits its
// size and copy; Frozen sizes its instances without a copy; Bag has its own __index and
// __newindex; Record has properties and its own __index; Point has a constructor and a
// metatable hook.
#include <cmath>

#include "lua/bindings.h"

namespace {

struct ShapeData {
  double area;
  int64_t id;
};
ShapeData *shape(void *instance) { return static_cast<ShapeData *>(instance); }
int64_t &count(void *instance) { return *static_cast<int64_t *>(instance); }

int area(void *o, lua_State *L) { return lua_pushnumber(L, shape(o)->area), 1; }
int shapeName(void *o, lua_State *L) { return lua_pushfstring(L, "Shape #%d", int(shape(o)->id)), 1; }
int getId(void *o, lua_State *L) { return lua_pushnumber(L, lua_Number(shape(o)->id)), 1; }
int setId(void *o, lua_State *L) { return shape(o)->id = TqLua_checkInteger(L, 3), 0; }
int getKind(void *, lua_State *L) { return lua_pushliteral(L, "shape"), 1; }
int setSecret(void *o, lua_State *L) { return shape(o)->area = TqLua_checkNumber(L, 3), 0; }
int radius(void *o, lua_State *L) { return lua_pushnumber(L, std::sqrt(shape(o)->area / M_PI)), 1; }
int circleName(void *, lua_State *L) { return lua_pushliteral(L, "a circle"), 1; }
int bang(void *, lua_State *L) { return lua_pushvalue(L, 2), lua_pushliteral(L, "!"), lua_concat(L, 2), 1; }
int countUp(void *o, lua_State *) { return ++count(o), 0; }
int getCount(void *o, lua_State *L) { return lua_pushnumber(L, lua_Number(count(o))), 1; }
int sum(void *o, lua_State *L) { return lua_pushnumber(L, static_cast<double *>(o)[0] + static_cast<double *>(o)[1]), 1; }
int answer(lua_State *L) { return lua_pushnumber(L, 42), 1; }
int hookMetatable(lua_State *L) {
  lua_pushcfunction(L, answer);
  lua_setfield(L, 2, "hooked");
  return lua_pushliteral(L, "seen"), lua_setfield(L, 1, "__hooked"), 0;
}
int construct(const TqDirectObjectClass *objectClass, lua_State *L) {
  auto *point = static_cast<double *>(TqDirectObject_checkPushAllocToLua(L, objectClass));
  point[0] = TqLua_checkNumber(L, 2);
  point[1] = TqLua_checkNumber(L, 3);
  return lua_pushliteral(L, "made"), 2;
}

const TqDirectObjectMethod kShapeMethods[] = {{"area", area}, {"__tostring", shapeName}, {nullptr, nullptr}};
const TqDirectObjectProperty kShapeProperties[] = {
    {"id", getId, setId}, {"kind", getKind, nullptr}, {"secret", nullptr, setSecret}, {nullptr, nullptr, nullptr}};
const TqDirectObjectMethod kCircleMethods[] = {{"radius", radius}, {"__tostring", circleName}, {nullptr, nullptr}};
const TqDirectObjectMethod kBagMethods[] = {
    {"__index", bang}, {"__newindex", countUp}, {"count", getCount}, {nullptr, nullptr}};
const TqDirectObjectProperty kRecordProperties[] = {{"kind", getKind, nullptr}, {nullptr, nullptr, nullptr}};
const TqDirectObjectMethod kRecordMethods[] = {{"__index", bang}, {nullptr, nullptr}};
const TqDirectObjectMethod kPointMethods[] = {{"sum", sum}, {nullptr, nullptr}};

const TqDirectObjectClass kShape = {nullptr, "Shape", sizeof(ShapeData), nullptr, nullptr,
                                    TqDirectObject_memcpy, kShapeMethods, kShapeProperties};
const TqDirectObjectClass kClasses[] = {
    {&kShape, "Circle", 0, nullptr, nullptr, nullptr, kCircleMethods, nullptr},
    {&kShape, "Frozen", 24, nullptr, nullptr, nullptr, nullptr, nullptr},
    {nullptr, "Bag", 8, nullptr, nullptr, nullptr, kBagMethods, nullptr},
    {nullptr, "Record", 8, nullptr, nullptr, nullptr, kRecordMethods, kRecordProperties},
    {nullptr, "Point", 16, hookMetatable, construct, nullptr, kPointMethods, nullptr}};

}  // namespace

namespace tqtest {

void openClasses(lua_State *L) {
  lua_getglobal(L, "T");
  TqDirectObject_checkPushClassToLua(L, &kShape);
  lua_setfield(L, -2, kShape.name);
  for (const TqDirectObjectClass &objectClass : kClasses) {
    TqDirectObject_checkPushClassToLua(L, &objectClass);
    lua_setfield(L, -2, objectClass.name);
  }
  lua_pop(L, 1);
}

}  // namespace tqtest
