/* Tagged heavy userdata.
 *
 * The library recognises its own full userdata by an 8-byte trailer at the end of the
 * block: the seven bytes "TqXkLua" and a tag byte. A block is tagged exactly when those
 * seven bytes are there; nothing else records it, so no metatable or registry lookup is
 * involved. Light userdata never carry a tag.
 *
 *   | payload (payloadSize bytes) | "TqXkLua" | tag |
 *   ^ the pointer handed to callers
 */
#ifndef TQKERNEL_USERDATA_H
#define TQKERNEL_USERDATA_H

#include <stddef.h>

#include <tqkernel/export.h>
#include <tqkernel/lua_api.h>

TQ_BEGIN_DECLS

enum {
  TqLuaInternal_nativeObjectTag = 1, /* a native object: the toolkit's type -2 */
  TqLuaInternal_invalidTag = 2       /* a native object whose native side has gone */
};

/* Pushes a new full userdata of payloadSize + 8 bytes with the trailer written and no
 * metatable; returns the payload. A tag of 0 raises "Assertion failed: 0 < tag". */
TQ_API void *TqLuaInternal_makeTaggedHeavyUserdata(lua_State *L, size_t payloadSize,
                                                   unsigned char tag);
/* The tag (0..255) of a tagged full userdata; -1 for any other value. */
TQ_API int TqLuaInternal_getuserdatatag(lua_State *L, int index);
/* Writes the tag of a tagged full userdata and returns 1; returns 0 for any other value. */
TQ_API int TqLuaInternal_setuserdatatag(lua_State *L, int index, unsigned char tag);
TQ_API int TqLuaInternal_isTaggedHeavyUserdata(lua_State *L, int index, unsigned char tag);
/* The payload when the value is tagged with exactly tag; NULL otherwise. */
TQ_API void *TqLuaInternal_toTaggedHeavyUserdata(lua_State *L, int index, unsigned char tag);
/* The payload; a value that is no full userdata is an argument error ("userdata
 * expected, got ..."), another tag "Assertion failed: TqLuaInternal_getuserdatatag( L,
 * index ) == tag". */
TQ_API void *TqLuaInternal_checkTaggedHeavyUserdata(lua_State *L, int index, unsigned char tag);
/* Tags a tagged full userdata as invalidated (2); leaves anything else alone. */
TQ_API void TqLuaInternal_setTaggedHeavyUserdataToInvalid(lua_State *L, int index);

/* Lua function (): true when the running coroutine could yield from here, that is when
 * no native call boundary lies between the caller and the coroutine's base. */
TQ_API int TqLuaInternal_canYield_L(lua_State *L);

TQ_END_DECLS

#endif
