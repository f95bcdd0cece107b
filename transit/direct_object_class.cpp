// Class objects: one Lua value per class and state that stands for the class itself.
#include <tqkernel/exceptions.h>
#include <tqkernel/toolkit.h>

#include "transit/direct_object_internal.h"

namespace {

// Keys the cache table that maps class records to their class objects.
const char sClassObjectsKey = 0;

const TqDirectObjectClass *representedClass(void *instance) {
  return *static_cast<const TqDirectObjectClass **>(instance);
}

int testObject(void *instance, lua_State *L) {
  lua_pushboolean(L, TqDirectObject_fromLua(L, 2, representedClass(instance)) != nullptr);
  return 1;
}

int construct(void *instance, lua_State *L) {
  const TqDirectObjectClass *objectClass = representedClass(instance);
  if (objectClass->constructor) return objectClass->constructor(objectClass, L);
  TqDirectObject_checkPushAllocToLua(L, objectClass);
  return 1;
}

const TqDirectObjectMethod kClassMethods[] = {
    {"testObject", testObject}, {"__call", construct}, {nullptr, nullptr}};

}  // namespace

const TqDirectObjectClass TqDirectObject_Class = {
    nullptr, "TqDirectObject_Class", sizeof(TqDirectObjectClass *), nullptr, nullptr, nullptr,
    kClassMethods, nullptr};

int TqDirectObject_checkPushClassToLua(lua_State *L, const TqDirectObjectClass *objectClass) {
  if (!objectClass) TqLua_throwProgramError(L, "No class description provided when pushing class.");
  TqLua_pushCachedTable(L, tq::kDirectObjectCache, &sClassObjectsKey);
  lua_pushlightuserdata(L, const_cast<TqDirectObjectClass *>(objectClass));
  lua_rawget(L, -2);
  if (lua_isnil(L, -1)) {
    lua_pop(L, 1);
    auto *record = static_cast<const TqDirectObjectClass **>(
        TqDirectObject_checkPushAllocToLua(L, &TqDirectObject_Class));
    *record = objectClass;
    lua_pushlightuserdata(L, const_cast<TqDirectObjectClass *>(objectClass));
    lua_pushvalue(L, -2);
    lua_rawset(L, -4);
  }
  lua_remove(L, -2);
  return 1;
}
