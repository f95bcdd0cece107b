// Direct objects: class resolution, instance checks, allocation, packing and copying.
#include <cstring>

#include <tqkernel/exceptions.h>
#include <tqkernel/userdata.h>

#include "transit/direct_object_internal.h"
#include "transit/packed_format.h"

namespace {

using tq::packed::read;
using tq::packed::write;

// The instance bytes of a packed form follow the class record.
constexpr size_t kInstanceOffset = 8;

const TqDirectObjectClass *packedClass(const unsigned char *packedForm) {
  return read<const TqDirectObjectClass *>(packedForm);
}

TQ_NORETURN void raiseClassMismatch(lua_State *L, int index, const TqDirectObjectClass *objectClass) {
  lua_pushfstring(L, "Expected object of class %s at index %d, got value of type %s.",
                  objectClass->name, index, lua_typename(L, lua_type(L, index)));
  lua_error(L);
  __builtin_unreachable();
}

}  // namespace

uint64_t tq::effectiveInstanceSize(const TqDirectObjectClass *objectClass) {
  for (const TqDirectObjectClass *c = objectClass; c; c = c->superclass) {
    if (c->instanceSize) return c->instanceSize;
  }
  return 0;
}

TqDirectObjectCopy tq::effectiveCopy(const TqDirectObjectClass *objectClass) {
  for (const TqDirectObjectClass *c = objectClass; c; c = c->superclass) {
    // A class that sizes its instances without saying how to copy them cannot travel,
    // whatever its superclasses can do.
    if (c->instanceSize || c->copy) return c->copy;
  }
  return nullptr;
}

const TqDirectObjectMethod *tq::findMethod(const TqDirectObjectClass *objectClass, const char *name) {
  for (const TqDirectObjectClass *c = objectClass; c; c = c->superclass) {
    for (const TqDirectObjectMethod *m = c->methods; m && m->name; ++m) {
      if (std::strcmp(m->name, name) == 0) return m;
    }
  }
  return nullptr;
}

size_t tq::packedDirectObjectSize(const unsigned char *packedForm) {
  return kInstanceOffset + effectiveInstanceSize(packedClass(packedForm));
}

void *TqDirectObject_fromLua(lua_State *L, int index, const TqDirectObjectClass *objectClass) {
  if (!lua_isuserdata(L, index) || !lua_getmetatable(L, index)) return nullptr;
  // Every class of the chain is marked, so a subclass instance passes for its superclasses.
  lua_pushlightuserdata(L, const_cast<TqDirectObjectClass *>(objectClass));
  lua_rawget(L, -2);
  const bool marked = lua_toboolean(L, -1);
  lua_pop(L, 2);
  return marked ? lua_touserdata(L, index) : nullptr;
}

void *TqDirectObject_checkFromLua(lua_State *L, int index, const TqDirectObjectClass *objectClass) {
  void *instance = TqDirectObject_fromLua(L, index, objectClass);
  if (!instance) raiseClassMismatch(L, index, objectClass);
  return instance;
}

void *TqDirectObject_optFromLua(lua_State *L, int index, const TqDirectObjectClass *objectClass,
                                void *defaultInstance) {
  if (lua_isnoneornil(L, index)) return defaultInstance;
  return TqDirectObject_checkFromLua(L, index, objectClass);
}

void *TqDirectObject_checkPushAllocToLua(lua_State *L, const TqDirectObjectClass *objectClass) {
  if (!objectClass) TqLua_throwProgramError(L, "Pointer was null: objectClass");
  const size_t size = tq::effectiveInstanceSize(objectClass);
  void *instance = TqLuaInternal_makeTaggedHeavyUserdata(L, size, TqLuaInternal_nativeObjectTag);
  std::memset(instance, 0, size);
  tq::pushClassMetatable(L, objectClass);
  lua_setmetatable(L, -2);
  return instance;
}

int TqDirectObject_classHasSuperclass(const TqDirectObjectClass *objectClass,
                                      const TqDirectObjectClass *candidate) {
  if (!candidate) return 0;
  for (const TqDirectObjectClass *c = objectClass; c; c = c->superclass) {
    if (c == candidate) return 1;
  }
  return 0;
}

size_t TqDirectObject_pack(const TqDirectObjectClass *objectClass, void *instance,
                           void *destination, int canUseMoveSemantics) {
  const TqDirectObjectCopy copy = tq::effectiveCopy(objectClass);
  if (!copy) return 0;
  const size_t size = tq::effectiveInstanceSize(objectClass);
  if (destination) {
    auto *packedForm = static_cast<unsigned char *>(destination);
    write<const TqDirectObjectClass *>(packedForm, objectClass);
    std::memset(packedForm + kInstanceOffset, 0, size);
    copy(packedForm + kInstanceOffset, instance, size, canUseMoveSemantics);
  }
  return kInstanceOffset + size;
}

size_t TqDirectObject_packFromLua(lua_State *L, int index, void *destination,
                                  int canUseMoveSemantics) {
  if (!lua_isuserdata(L, index)) return 0;
  const TqDirectObjectClass *objectClass = tq::classOf(L, index);
  if (!objectClass) return 0;
  return TqDirectObject_pack(objectClass, lua_touserdata(L, index), destination, canUseMoveSemantics);
}

size_t TqDirectObject_unpack_v2(void *packed, lua_State *L, int takeOwnership) {
  auto *packedForm = static_cast<unsigned char *>(packed);
  const TqDirectObjectClass *objectClass = packedClass(packedForm);
  const size_t size = tq::effectiveInstanceSize(objectClass);
  if (L) {
    const TqDirectObjectCopy copy = tq::effectiveCopy(objectClass);
    void *instance = TqDirectObject_checkPushAllocToLua(L, objectClass);
    copy(instance, packedForm + kInstanceOffset, size, takeOwnership);
  }
  if (takeOwnership) TqDirectObject_disposePacked(packed);
  return kInstanceOffset + size;
}

size_t TqDirectObject_unpack(void *packed, lua_State *L) { return TqDirectObject_unpack_v2(packed, L, 1); }

void TqDirectObject_disposePacked(void *packed) {
  auto *packedForm = static_cast<unsigned char *>(packed);
  if (const TqDirectObjectMethod *gc = tq::findMethod(packedClass(packedForm), "__gc")) {
    gc->method(packedForm + kInstanceOffset, nullptr);
  }
}

int TqDirectObject_copyFromLuaStateToLuaState(lua_State *source, int index, lua_State *destination,
                                              int canUseMoveSemantics) {
  if (!lua_isuserdata(source, index)) return 0;
  const TqDirectObjectClass *objectClass = tq::classOf(source, index);
  const TqDirectObjectCopy copy = objectClass ? tq::effectiveCopy(objectClass) : nullptr;
  if (!copy) return 0;
  // Taken before pushing: source and destination may be one state, index relative.
  void *original = lua_touserdata(source, index);
  void *instance = TqDirectObject_checkPushAllocToLua(destination, objectClass);
  copy(instance, original, tq::effectiveInstanceSize(objectClass), canUseMoveSemantics);
  return 1;
}

void TqDirectObject_memcpy(void *destination, void *source, size_t size, int) {
  std::memcpy(destination, source, size);
}

intptr_t TqDirectObject_predecrementCount(intptr_t value) { return value; }
