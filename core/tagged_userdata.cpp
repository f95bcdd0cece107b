// Full userdata that carry the library's trailer: "TqXkLua" and a tag byte at the end of
// the block. Only the trailer itself says that a block is tagged.
#include <tqkernel/toolkit.h>
#include <tqkernel/userdata.h>

#include <cstdint>
#include <cstring>

#include "toolkit/assert.h"

namespace {

constexpr char kMark[7] = {'T', 'q', 'X', 'k', 'L', 'u', 'a'};
constexpr size_t kTrailerSize = sizeof kMark + 1;

// The tag byte of a tagged full userdata, or NULL.
unsigned char *tagOf(lua_State *L, int index) {
  if (lua_type(L, index) != LUA_TUSERDATA) return nullptr;
  const size_t length = lua_objlen(L, index);
  if (length < kTrailerSize) return nullptr;
  unsigned char *trailer = static_cast<unsigned char *>(lua_touserdata(L, index)) + length - kTrailerSize;
  if (std::memcmp(trailer, kMark, sizeof kMark) != 0) return nullptr;
  return trailer + sizeof kMark;
}

}  // namespace

void *TqLuaInternal_makeTaggedHeavyUserdata(lua_State *L, size_t payloadSize, unsigned char tag) {
  TQ_ASSERT(L, 0 < tag);
  // A size that would wrap asks for the impossible block; Lua refuses it as too big.
  const size_t blockSize = payloadSize > SIZE_MAX - kTrailerSize ? SIZE_MAX : payloadSize + kTrailerSize;
  char *payload = static_cast<char *>(lua_newuserdata(L, blockSize));
  std::memcpy(payload + payloadSize, kMark, sizeof kMark);
  TQ_ASSERT(L, TqLuaInternal_setuserdatatag( L, -1, tag ));
  return payload;
}

int TqLuaInternal_getuserdatatag(lua_State *L, int index) {
  const unsigned char *tag = tagOf(L, index);
  return tag ? *tag : -1;
}

int TqLuaInternal_setuserdatatag(lua_State *L, int index, unsigned char tag) {
  unsigned char *stored = tagOf(L, index);
  if (!stored) return 0;
  *stored = tag;
  return 1;
}

int TqLuaInternal_isTaggedHeavyUserdata(lua_State *L, int index, unsigned char tag) {
  return TqLuaInternal_getuserdatatag(L, index) == tag;
}

void *TqLuaInternal_toTaggedHeavyUserdata(lua_State *L, int index, unsigned char tag) {
  return TqLuaInternal_isTaggedHeavyUserdata(L, index, tag) ? lua_touserdata(L, index) : nullptr;
}

void *TqLuaInternal_checkTaggedHeavyUserdata(lua_State *L, int index, unsigned char tag) {
  void *payload = TqLua_checkHeavyUserdata(L, index);
  TQ_ASSERT(L, TqLuaInternal_getuserdatatag( L, index ) == tag);
  return payload;
}

void TqLuaInternal_setTaggedHeavyUserdataToInvalid(lua_State *L, int index) {
  TqLuaInternal_setuserdatatag(L, index, TqLuaInternal_invalidTag);
}
