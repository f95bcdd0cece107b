// Rebuilding packed values on a Lua stack.
#include <cstdio>

#include "toolkit/assert.h"
#include "transit/extensions.h"
#include "transit/packed_format.h"

namespace {

using namespace tq::packed;

size_t unpackValue(lua_State *L, unsigned char *packed);

size_t unpackTable(lua_State *L, unsigned char *packed) {
  luaL_checkstack(L, 12, "No space in destination for copy.");
  const int32_t pairCount = read<int32_t>(packed + kPayloadOffset);
  size_t size = kContentOffset;
  lua_newtable(L);
  for (int32_t pair = 0; pair < pairCount; ++pair) {
    size += unpackValue(L, packed + size);
    size += unpackValue(L, packed + size);
    lua_rawset(L, -3);  // the new table has no metatable: the same as an assignment
  }
  return size;
}

size_t unpackByExtension(lua_State *L, unsigned char *packed) {
  const int32_t kind = tq::packed::kind(packed);
  const tq::ClaimedExtension claimed = tq::claimTransitExtension(L, 0, kind);
  if (!claimed.extension) {
    std::fprintf(stderr, "Unknown lua type: %d", kind);
    TQ_ASSERT(L, 0);
  }
  const size_t payloadSize = claimed.extension->unpack(claimed.kind, L, packed + kPayloadOffset);
  TQ_ASSERT(L, payloadSize != 0);
  return kPayloadOffset + payloadSize;
}

size_t unpackValue(lua_State *L, unsigned char *packed) {
  unsigned char *payload = packed + kPayloadOffset;
  switch (kind(packed)) {
    case TqTransitKind_none:
    case TqTransitKind_nil:
      lua_pushnil(L);
      return kScalarSize;
    case TqTransitKind_boolean:
      lua_pushboolean(L, read<int32_t>(payload));
      return kScalarSize;
    case TqTransitKind_lightUserdata:
      lua_pushlightuserdata(L, read<void *>(payload));
      return kScalarSize;
    case TqTransitKind_number:
      lua_pushnumber(L, read<double>(payload));
      return kScalarSize;
    case TqTransitKind_string: {
      const auto length = static_cast<size_t>(read<uint64_t>(payload));
      lua_pushlstring(L, reinterpret_cast<const char *>(packed + kContentOffset), length);
      return stringSize(length);
    }
    case TqTransitKind_table:
      return unpackTable(L, packed);
    case TqTransitKind_directObject:
      return kPayloadOffset + TqDirectObject_unpack_v2(payload, L, 1);
    case TqTransitKind_nestedCargo:
      return kPayloadOffset + unpackValue(L, payload);
    default:
      return unpackByExtension(L, packed);
  }
}

}  // namespace

size_t TqTransitValue_unpack(lua_State *L, void *packed) {
  luaL_checkstack(L, 12, "No space in destination for copy.");
  return unpackValue(L, static_cast<unsigned char *>(packed));
}

void TqTransitQueue_copyFromLuaStateToLuaState(lua_State *source, int sourceIndex,
                                               lua_State *destination, int canUseMoveSemantics) {
  MessagePtr message(TqTransitMessage_fromLuaValue(source, sourceIndex, canUseMoveSemantics));
  if (!message) abortTransit("Transit copy between Lua states failed: the value cannot be packed\n");
  TqTransitValue_unpack(destination, TqTransitMessage_packedValue(message.get()));
}
