#include <tqkernel/universe.h>

#include <set>

// The live prototypes of one universe, ordered by identity; the collector owns them.
struct TqLuaInternalProtos {
  std::set<const void *> protos;
};

TqLuaInternalProtos *TqLuaInternalProtos_newProtos(void) { return new TqLuaInternalProtos; }

void TqLuaInternalProtos_deleteProtos(TqLuaInternalProtos *protos) { delete protos; }
