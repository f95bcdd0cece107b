// The private metatable of a direct-object class: instance-of marks, methods,
// metamethods and properties, built once per class and state.
#include <cstdio>
#include <cstring>
#include <vector>

#include <tqkernel/toolkit.h>

#include "transit/direct_object_internal.h"

namespace {

// Addresses that key the metatable's class record and the cache of wrapper closures.
const char sClassKey = 0;
const char sWrapperCacheKey = 0;

const char *const kMetamethodNames[] = {
    "__call", "__eq",  "__lt",  "__le",  "__add",    "__sub",      "__mul",      "__div",  "__mod",
    "__pow",  "__unm", "__concat", "__tostring", "__len", "__index", "__newindex", "__gc"};

bool isMetamethodName(const char *name) {
  for (const char *metamethod : kMetamethodNames) {
    if (std::strcmp(name, metamethod) == 0) return true;
  }
  return false;
}

void *asLightUserdata(const void *pointer) { return const_cast<void *>(pointer); }

const TqDirectObjectClass *upvalueRecord(lua_State *L, int upvalue) {
  return static_cast<const TqDirectObjectClass *>(lua_touserdata(L, lua_upvalueindex(upvalue)));
}

// Wrappers close over the declaring class and the entry.
const TqDirectObjectClass *upvalueClass(lua_State *L) { return upvalueRecord(L, 1); }

template <typename Entry>
const Entry *upvalueEntry(lua_State *L) {
  return static_cast<const Entry *>(lua_touserdata(L, lua_upvalueindex(2)));
}

int callMethod(lua_State *L) {
  void *instance = TqDirectObject_checkFromLua(L, 1, upvalueClass(L));
  return upvalueEntry<TqDirectObjectMethod>(L)->method(instance, L);
}

int callGetter(lua_State *L) {
  void *instance = TqDirectObject_checkFromLua(L, 1, upvalueClass(L));
  return upvalueEntry<TqDirectObjectProperty>(L)->getter(instance, L);
}

int callSetter(lua_State *L) {
  void *instance = TqDirectObject_checkFromLua(L, 1, upvalueClass(L));
  return upvalueEntry<TqDirectObjectProperty>(L)->setter(instance, L);
}

int refuseReading(lua_State *L) {
  lua_pushfstring(L, "Attempt to read from field '%s' of class '%s'. This field does not support reading.",
                  upvalueEntry<TqDirectObjectProperty>(L)->name, upvalueClass(L)->name);
  return lua_error(L);
}

int refuseWriting(lua_State *L) {
  lua_pushfstring(L, "Attempt to write to field '%s' of class '%s'. This field does not support writing.",
                  upvalueEntry<TqDirectObjectProperty>(L)->name, upvalueClass(L)->name);
  return lua_error(L);
}

// Pushes the closure over (declaring class, entry) cached under key, an address inside
// the entry; it is made once per entry and state.
void pushWrapper(lua_State *L, const void *key, lua_CFunction function,
                 const TqDirectObjectClass *declaringClass, const void *entry) {
  TqLua_pushCachedTable(L, tq::kDirectObjectCache, &sWrapperCacheKey);
  lua_pushlightuserdata(L, asLightUserdata(key));
  lua_rawget(L, -2);
  if (lua_isnil(L, -1)) {
    lua_pop(L, 1);
    lua_pushlightuserdata(L, asLightUserdata(declaringClass));
    lua_pushlightuserdata(L, asLightUserdata(entry));
    lua_pushcclosure(L, function, 2);
    lua_pushlightuserdata(L, asLightUserdata(key));
    lua_pushvalue(L, -2);
    lua_rawset(L, -4);
  }
  lua_remove(L, -2);
}

// The class and its superclasses, the root first, so that later entries of a subclass
// replace those of its superclasses.
std::vector<const TqDirectObjectClass *> chainFromRoot(const TqDirectObjectClass *objectClass) {
  std::vector<const TqDirectObjectClass *> chain;
  for (const TqDirectObjectClass *c = objectClass; c; c = c->superclass) chain.insert(chain.begin(), c);
  return chain;
}

// Stores the wrapper of every method of the chain whose name is (or, with metamethods
// false, is not) a metamethod name in the table at tableIndex.
void storeMethods(lua_State *L, int tableIndex, const std::vector<const TqDirectObjectClass *> &chain,
                  bool metamethods) {
  for (const TqDirectObjectClass *c : chain) {
    for (const TqDirectObjectMethod *m = c->methods; m && m->name; ++m) {
      if (isMetamethodName(m->name) != metamethods) continue;
      pushWrapper(L, m, callMethod, c, m);
      lua_setfield(L, tableIndex, m->name);
    }
  }
}

bool hasProperties(const std::vector<const TqDirectObjectClass *> &chain) {
  for (const TqDirectObjectClass *c : chain) {
    if (c->properties && c->properties->name) return true;
  }
  return false;
}

// Pushes the getters (or setters) table: for each property, the accessor's wrapper, or a
// function that refuses the access when the property has no such accessor.
void pushAccessors(lua_State *L, const std::vector<const TqDirectObjectClass *> &chain, bool getters) {
  lua_newtable(L);
  for (const TqDirectObjectClass *c : chain) {
    for (const TqDirectObjectProperty *p = c->properties; p && p->name; ++p) {
      if (getters) {
        pushWrapper(L, &p->getter, p->getter ? callGetter : refuseReading, c, p);
      } else {
        pushWrapper(L, &p->setter, p->setter ? callSetter : refuseWriting, c, p);
      }
      lua_setfield(L, -2, p->name);
    }
  }
}

// Calls the function on top with the argc arguments below it; returns its results.
int callWithArguments(lua_State *L, int argc) {
  lua_insert(L, 1);
  lua_call(L, argc, LUA_MULTRET);
  return lua_gettop(L);
}

// The key is at stack index 2. Numbers are named as "%.14g" prints them.
TQ_NORETURN void raiseUnknownKey(lua_State *L, const char *namedFormat, const char *typedFormat,
                                 const TqDirectObjectClass *objectClass) {
  switch (lua_type(L, 2)) {
    case LUA_TSTRING:
      lua_pushfstring(L, namedFormat, lua_tostring(L, 2), objectClass->name);
      break;
    case LUA_TNUMBER: {
      char number[64];
      std::snprintf(number, sizeof number, "%.14g", lua_tonumber(L, 2));
      lua_pushfstring(L, namedFormat, number, objectClass->name);
      break;
    }
    default:
      lua_pushfstring(L, typedFormat, luaL_typename(L, 2), objectClass->name);
      break;
  }
  lua_error(L);
  __builtin_unreachable();
}

// Calls, with all the arguments, the function that the accessors table (when it is one)
// holds for the key at stack index 2, or else the class's own metamethod (when not nil).
// Returns the number of results, or -1 when there is neither.
int callAccessorOrOwn(lua_State *L, int accessors, int ownMetamethod) {
  const int argc = lua_gettop(L);
  if (lua_istable(L, accessors)) {
    lua_pushvalue(L, 2);
    lua_rawget(L, accessors);
    if (!lua_isnil(L, -1)) return callWithArguments(L, argc);
    lua_pop(L, 1);
  }
  if (lua_isnil(L, ownMetamethod)) return -1;
  lua_pushvalue(L, ownMetamethod);
  return callWithArguments(L, argc);
}

// __index: upvalues are the methods table, the getters table (nil without properties),
// the class's own __index (or nil) and the class record.
int indexMember(lua_State *L) {
  lua_pushvalue(L, 2);
  lua_rawget(L, lua_upvalueindex(1));
  if (!lua_isnil(L, -1)) return 1;
  lua_pop(L, 1);
  const int results = callAccessorOrOwn(L, lua_upvalueindex(2), lua_upvalueindex(3));
  if (results >= 0) return results;
  if (lua_isnil(L, lua_upvalueindex(2))) return 0;  // without properties, unknown keys read nil
  raiseUnknownKey(L, "Unable to fetch property '%s' from object of type '%s'",
                  "Unable to fetch property keyed by value of type '%s' from object of type '%s'",
                  upvalueRecord(L, 4));
}

// __newindex: upvalues are the setters table, the class's own __newindex (or nil) and the
// class record.
int assignMember(lua_State *L) {
  const int results = callAccessorOrOwn(L, lua_upvalueindex(1), lua_upvalueindex(2));
  if (results >= 0) return results;
  raiseUnknownKey(L, "Unable to set property '%s' on object of type '%s'",
                  "Unable to set property keyed by value of type '%s' on object of type '%s'",
                  upvalueRecord(L, 3));
}

// Fills the new metatable on top of the stack.
void buildMetatable(lua_State *L, const TqDirectObjectClass *objectClass) {
  luaL_checkstack(L, 10, "No space in stack for building metatable");
  const int metatable = lua_gettop(L);
  lua_pushliteral(L, "< private metatable >");
  lua_setfield(L, metatable, "__metatable");
  for (const TqDirectObjectClass *c = objectClass; c; c = c->superclass) {
    lua_pushlightuserdata(L, asLightUserdata(c));
    lua_pushboolean(L, 1);
    lua_rawset(L, metatable);
  }
  lua_pushlightuserdata(L, asLightUserdata(&sClassKey));
  lua_pushlightuserdata(L, asLightUserdata(objectClass));
  lua_rawset(L, metatable);

  const std::vector<const TqDirectObjectClass *> chain = chainFromRoot(objectClass);
  storeMethods(L, metatable, chain, true);
  lua_newtable(L);
  const int methods = lua_gettop(L);
  storeMethods(L, methods, chain, false);
  if (objectClass->metatableHook) {
    lua_pushcfunction(L, objectClass->metatableHook);
    lua_pushvalue(L, metatable);
    lua_pushvalue(L, methods);
    lua_call(L, 2, 0);
  }
  lua_pushvalue(L, methods);
  lua_setfield(L, metatable, "__hasmethods");

  // What the chain's own metamethods left there; member lookup falls back on them.
  lua_getfield(L, metatable, "__index");
  const int ownIndex = lua_gettop(L);
  const bool withProperties = hasProperties(chain);
  if (withProperties || !lua_isnil(L, ownIndex)) {
    lua_pushvalue(L, methods);
    if (withProperties) {
      pushAccessors(L, chain, true);
    } else {
      lua_pushnil(L);
    }
    lua_pushvalue(L, ownIndex);
    lua_pushlightuserdata(L, asLightUserdata(objectClass));
    lua_pushcclosure(L, indexMember, 4);
  } else {
    lua_pushvalue(L, methods);
  }
  lua_setfield(L, metatable, "__index");
  if (withProperties) {
    pushAccessors(L, chain, false);
    lua_getfield(L, metatable, "__newindex");
    lua_pushlightuserdata(L, asLightUserdata(objectClass));
    lua_pushcclosure(L, assignMember, 3);
    lua_setfield(L, metatable, "__newindex");
  }
  lua_settop(L, metatable);
}

}  // namespace

void tq::pushClassMetatable(lua_State *L, const TqDirectObjectClass *objectClass) {
  if (TqLua_pushCachedTable(L, kDirectObjectCache, objectClass)) buildMetatable(L, objectClass);
}

const TqDirectObjectClass *tq::classOf(lua_State *L, int index) {
  if (!lua_getmetatable(L, index)) return nullptr;
  lua_pushlightuserdata(L, asLightUserdata(&sClassKey));
  lua_rawget(L, -2);
  const auto *objectClass = static_cast<const TqDirectObjectClass *>(lua_touserdata(L, -1));
  lua_pop(L, 2);
  return objectClass;
}
