// Packing a value of a Lua stack: one measuring pass sizes the message, one writing pass
// fills it, so a value crosses in exactly one allocation.
#include <cstdio>

#include <tqkernel/toolkit.h>

#include "toolkit/assert.h"
#include "transit/extensions.h"
#include "transit/packed_format.h"

namespace {

using namespace tq::packed;

// destination is null when measuring.
unsigned char *payloadOf(unsigned char *destination) {
  return destination ? destination + kPayloadOffset : nullptr;
}

size_t packValue(lua_State *L, int index, int canUseMoveSemantics, unsigned char *destination);

// Each level of a table pushes a key and a value: a table that contains itself runs out of
// stack here.
size_t packTable(lua_State *L, int index, int canUseMoveSemantics, unsigned char *destination) {
  luaL_checkstack(L, 12, "No space in source for copy.");
  if (lua_getmetatable(L, index)) {
    lua_pop(L, 1);
    std::fputs("Tables with metatables are not supported for transit copying\n", stderr);
    return 0;
  }
  size_t size = kContentOffset;
  int32_t pairCount = 0;
  lua_pushnil(L);
  while (lua_next(L, index)) {
    const int valueIndex = lua_gettop(L);
    for (int element = valueIndex - 1; element <= valueIndex; ++element) {
      const size_t elementSize =
          packValue(L, element, canUseMoveSemantics, destination ? destination + size : nullptr);
      if (elementSize == 0) {
        lua_pop(L, 2);
        return 0;
      }
      size += elementSize;
    }
    ++pairCount;
    lua_pop(L, 1);
  }
  if (destination) write<int32_t>(destination + kPayloadOffset, pairCount);
  return size;
}

// Extensions get the value when nothing built in could pack it.
size_t packByExtension(lua_State *L, int index, int type, unsigned char *destination) {
  const tq::ClaimedExtension claimed = tq::claimTransitExtension(L, index, type);
  if (!claimed.extension) {
    reportUnimplemented(type);
    return 0;
  }
  if (destination) write<int32_t>(destination, claimed.kind);
  const size_t size = claimed.extension->pack(claimed.kind, payloadOf(destination), L, index);
  return size ? kPayloadOffset + size : 0;
}

// index is absolute.
size_t packValue(lua_State *L, int index, int canUseMoveSemantics, unsigned char *destination) {
  const int type = lua_type(L, index);
  if (destination) write<int32_t>(destination, type);
  switch (type) {
    case LUA_TNONE:
    case LUA_TNIL:
      if (destination) write<int32_t>(destination + kPayloadOffset, 0);
      return kScalarSize;
    case LUA_TBOOLEAN:
      if (destination) write<int32_t>(destination + kPayloadOffset, lua_toboolean(L, index));
      return kScalarSize;
    case LUA_TLIGHTUSERDATA:
      if (destination) write<void *>(destination + kPayloadOffset, lua_touserdata(L, index));
      return kScalarSize;
    case LUA_TNUMBER:
      if (destination) write<double>(destination + kPayloadOffset, lua_tonumber(L, index));
      return kScalarSize;
    case LUA_TSTRING: {
      size_t length = 0;
      const char *bytes = lua_tolstring(L, index, &length);
      if (destination) writeString(destination, bytes, length);
      return stringSize(length);
    }
    case LUA_TTABLE:
      return packTable(L, index, canUseMoveSemantics, destination);
    case LUA_TUSERDATA:
      if (const size_t size = TqDirectObject_packFromLua(L, index, payloadOf(destination),
                                                         canUseMoveSemantics)) {
        return kPayloadOffset + size;
      }
      return packByExtension(L, index, type, destination);
    default:
      return packByExtension(L, index, type, destination);
  }
}

}  // namespace

size_t tq::packTransitValue(lua_State *L, int index, int canUseMoveSemantics, void *destination) {
  luaL_checkstack(L, 12, "No space in source for copy.");
  return packValue(L, TqLua_normalize(L, index), canUseMoveSemantics,
                   static_cast<unsigned char *>(destination));
}

size_t TqTransitValue_pack(lua_State *L, int index, int canUseMoveSemantics, void *destination) {
  return tq::packTransitValue(L, index, canUseMoveSemantics, destination);
}

TqTransitMessage *TqTransitMessage_fromLuaValue(lua_State *L, int index, int canUseMoveSemantics) {
  using tq::packTransitValue;
  const size_t size = packTransitValue(L, index, canUseMoveSemantics, nullptr);
  if (size == 0) return nullptr;
  MessagePtr message(allocateMessage(size));
  void *p = TqTransitMessage_packedValue(message.get());
  TQ_ASSERT(L, size == packTransitValue( L, index, canUseMoveSemantics, p ));
  return message.release();
}
