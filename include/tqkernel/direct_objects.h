/* Direct objects: native objects living inside Lua full userdata, described by static
 * class records.
 *
 * From a class record the library builds, once per class and state, a private metatable
 * that gives instances their methods, properties and metamethods and marks every class
 * of the superclass chain, so that an instance of a subclass passes for its superclasses.
 * Instances are tagged heavy userdata (tag 1, a native object) of the effective instance
 * size, zero-filled at creation.
 *
 * Resolution along the chain, the class itself first:
 *   instance size  the first non-zero instanceSize;
 *   copy           the first class with an instanceSize or a copy decides: its copy, or
 *                  none (the class cannot travel) when it has a size but no copy;
 *   __gc           the first method named "__gc". */
#ifndef TQKERNEL_DIRECT_OBJECTS_H
#define TQKERNEL_DIRECT_OBJECTS_H

#include <stddef.h>
#include <stdint.h>

#include <tqkernel/export.h>
#include <tqkernel/lua_api.h>

TQ_BEGIN_DECLS

typedef struct TqDirectObjectClass TqDirectObjectClass;

/* A method, getter or setter: called with the instance and the state (the Lua arguments
 * on its stack, the object first); returns the number of results it pushed. A "__gc"
 * method must also accept a NULL state: packed copies are disposed of without one. */
typedef int (*TqDirectObjectFunction)(void *instance, lua_State *L);
/* Called by the class object's __call, the class object at stack index 1 and the
 * arguments after it; returns the number of results. */
typedef int (*TqDirectObjectConstructor)(const TqDirectObjectClass *objectClass, lua_State *L);
/* Copies (or, with move, transfers) an instance into a zero-filled destination. A move may
 * leave the source in any state that its __gc tolerates. */
typedef void (*TqDirectObjectCopy)(void *destination, void *source, size_t size,
                                   int canUseMoveSemantics);

typedef struct TqDirectObjectMethod {
  const char *name; /* NULL ends a list */
  TqDirectObjectFunction method;
} TqDirectObjectMethod;

typedef struct TqDirectObjectProperty {
  const char *name; /* NULL ends a list */
  TqDirectObjectFunction getter; /* NULL: the property cannot be read */
  TqDirectObjectFunction setter; /* NULL: the property cannot be written */
} TqDirectObjectProperty;

/* Static and immutable; shared by every state and thread. */
struct TqDirectObjectClass {
  const TqDirectObjectClass *superclass;
  const char *name;
  uint64_t instanceSize; /* 0: inherited */
  /* Called once while the metatable is built, with (metatable, methods table). */
  lua_CFunction metatableHook;
  /* NULL: calling the class object makes a zero-filled instance. */
  TqDirectObjectConstructor constructor;
  TqDirectObjectCopy copy;
  const TqDirectObjectMethod *methods;       /* or NULL */
  const TqDirectObjectProperty *properties;  /* or NULL */
};

/* The class of class objects: Lua values that stand for a class. Their 8-byte instance
 * holds the class record; methods "testObject" (true when argument 2 is an instance of
 * the class or a subclass) and "__call" (constructs an instance). */
TQ_API extern const TqDirectObjectClass TqDirectObject_Class;

/* The instance when the value is an instance of objectClass or of a subclass; else NULL.
 * Never raises. */
TQ_API void *TqDirectObject_fromLua(lua_State *L, int index, const TqDirectObjectClass *objectClass);
/* As fromLua, but raises "Expected object of class %s at index %d, got value of type %s."
 * for anything else. */
TQ_API void *TqDirectObject_checkFromLua(lua_State *L, int index,
                                         const TqDirectObjectClass *objectClass);
/* defaultInstance for an absent slot or nil, else as checkFromLua. */
TQ_API void *TqDirectObject_optFromLua(lua_State *L, int index,
                                       const TqDirectObjectClass *objectClass,
                                       void *defaultInstance);
/* Pushes a new zero-filled instance; returns it. */
TQ_API void *TqDirectObject_checkPushAllocToLua(lua_State *L, const TqDirectObjectClass *objectClass);
/* Pushes the class object (one per class and state); returns 1. */
TQ_API int TqDirectObject_checkPushClassToLua(lua_State *L, const TqDirectObjectClass *objectClass);
/* True when candidate is objectClass or on its superclass chain; false if either is NULL. */
TQ_API int TqDirectObject_classHasSuperclass(const TqDirectObjectClass *objectClass,
                                             const TqDirectObjectClass *candidate);

/* Packed form: the class record (64-bit), then the instance bytes made by the copy
 * operation. Returns its size, 8 + the instance size, or 0 when the class cannot be
 * copied; with a NULL destination only measures. */
TQ_API size_t TqDirectObject_pack(const TqDirectObjectClass *objectClass, void *instance,
                                  void *destination, int canUseMoveSemantics);
/* Packs the direct object at index; 0 when it is none or cannot be copied. */
TQ_API size_t TqDirectObject_packFromLua(lua_State *L, int index, void *destination,
                                         int canUseMoveSemantics);
/* With a state, pushes a new instance copied from the packed one (moved when
 * takeOwnership is set); then, when takeOwnership is set, disposes of the packed instance
 * through the class's __gc. Returns the size of the packed form. */
TQ_API size_t TqDirectObject_unpack_v2(void *packed, lua_State *L, int takeOwnership);
TQ_API size_t TqDirectObject_unpack(void *packed, lua_State *L);
/* Calls the class's __gc, if any, on the packed instance, with no state. */
TQ_API void TqDirectObject_disposePacked(void *packed);
/* Pushes on destination a copy of the direct object at index of source; returns 1, or 0
 * (pushing nothing) when the value is no direct object of a copyable class. */
TQ_API int TqDirectObject_copyFromLuaStateToLuaState(lua_State *source, int index,
                                                     lua_State *destination,
                                                     int canUseMoveSemantics);

/* A ready-made copy operation for classes of plain data: copies the bytes, for a move as
 * well. */
TQ_API void TqDirectObject_memcpy(void *destination, void *source, size_t size,
                                  int canUseMoveSemantics);
/* A ready-made no-op hook: returns its argument. */
TQ_API intptr_t TqDirectObject_predecrementCount(intptr_t value);

TQ_END_DECLS

#endif
