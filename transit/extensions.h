// The process-wide list of transit extensions.
#ifndef TQ_TRANSIT_EXTENSIONS_H
#define TQ_TRANSIT_EXTENSIONS_H

#include <cstdint>

#include <tqkernel/transit.h>

namespace tq {

struct ClaimedExtension {
  const TqTransitExtension *extension; // null when no extension claims the value
  int32_t kind;                        // the code the extension returned
};

// The first extension, in registration order, that claims (L, index, kind).
ClaimedExtension claimTransitExtension(lua_State *L, int index, int32_t kind);

}  // namespace tq

#endif
