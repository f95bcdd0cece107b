// Class resolution and the private metatables of direct objects, shared inside transit.
#ifndef TQ_TRANSIT_DIRECT_OBJECT_INTERNAL_H
#define TQ_TRANSIT_DIRECT_OBJECT_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include <tqkernel/direct_objects.h>

namespace tq {

// The registry cache of metatables, class objects and wrapper closures.
constexpr const char *kDirectObjectCache = "TqDirectObject";

// Along the superclass chain, the class itself first: the first non-zero instance size.
uint64_t effectiveInstanceSize(const TqDirectObjectClass *objectClass);
// The first class with a size or a copy decides; null when the class cannot be copied.
TqDirectObjectCopy effectiveCopy(const TqDirectObjectClass *objectClass);
// The first method of that name along the chain, or null.
const TqDirectObjectMethod *findMethod(const TqDirectObjectClass *objectClass, const char *name);

// The size of a direct object's packed form: its class record and instance bytes.
size_t packedDirectObjectSize(const unsigned char *packedForm);

// Pushes the class's private metatable, building it on first use in the state.
void pushClassMetatable(lua_State *L, const TqDirectObjectClass *objectClass);
// The class recorded in the metatable of the value at index, or null.
const TqDirectObjectClass *classOf(lua_State *L, int index);

}  // namespace tq

#endif
