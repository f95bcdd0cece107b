// The layout of cargo nodes, shared by construction, walking and conversion.
#ifndef TQ_TRANSIT_CARGO_INTERNAL_H
#define TQ_TRANSIT_CARGO_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include <tqkernel/transit.h>

struct TqTransitCargo {
  TqTransitCargoNode *first; // both null when empty
  TqTransitCargoNode *last;
};

struct TqTransitCargoNode {
  int32_t kind;
  TqTransitCargoNode *next;
  union {
    int32_t booleanValue;
    void *pointer;
    double number;
    uint64_t stringLength; // the bytes and a zero follow the node
    int32_t pairCount;
    struct {
      const TqDirectObjectClass *objectClass;
      void *object;
      int32_t canUseMoveSemantics;
    } directObject;
    TqTransitCargo *inner;
  };

  const char *stringBytes() const { return reinterpret_cast<const char *>(this + 1); }
};

static_assert(sizeof(TqTransitCargoNode) == 40, "a string node is its length + 41 bytes");

#endif
