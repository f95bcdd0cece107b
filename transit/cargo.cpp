// Building, walking and discarding cargo: value trees made by native code without a Lua
// state.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "transit/cargo_internal.h"
#include "transit/direct_object_internal.h"
#include "transit/packed_format.h"

namespace {

TqTransitCargoNode *appendNode(TqTransitCargo *cargo, int32_t kind, size_t nodeSize) {
  auto *node = static_cast<TqTransitCargoNode *>(std::calloc(1, nodeSize));
  node->kind = kind;
  if (cargo->last) {
    cargo->last->next = node;
  } else {
    cargo->first = node;
  }
  cargo->last = node;
  return node;
}

// Classes that can be copied get room for a copy of the instance.
size_t directObjectNodeSize(const TqDirectObjectClass *objectClass) {
  if (!tq::effectiveCopy(objectClass)) return sizeof(TqTransitCargoNode);
  return sizeof(TqTransitCargoNode) + 8 + tq::effectiveInstanceSize(objectClass);
}

void checkCargo(const TqTransitCargo *cargo) {
  if (!cargo) tq::packed::abortTransit("Pointer was null: cargo\n");
}

struct Walk {
  TqTransitCargoVisitor callback;
  void *context;

  bool freeing() const { return !callback && context == TqTransitCargo_freeingWalk; }
  void tell(const TqTransitCargoVisit &visit) const {
    if (callback) callback(context, &visit);
  }
};

// Visits the subtree that starts at cursor and moves cursor past it. False at a node of a
// kind that cannot be visited, and for a table that runs out of entries.
bool walkSubtree(TqTransitCargoNode *&cursor, const Walk &walk) {
  TqTransitCargoNode *node = cursor;
  if (!node) return false;
  cursor = node->next;
  TqTransitCargoVisit visit;
  std::memset(&visit, 0, sizeof visit);
  visit.kind = node->kind;
  switch (node->kind) {
    case TqTransitKind_nil:
      break;
    case TqTransitKind_boolean:
      visit.booleanValue = node->booleanValue;
      break;
    case TqTransitKind_number:
      visit.numberValue = node->number;
      break;
    case TqTransitKind_string:
      visit.stringLength = node->stringLength;
      visit.stringBytes = node->stringBytes();
      break;
    case TqTransitKind_table:
      visit.tablePairCount = node->pairCount;
      walk.tell(visit);
      for (int64_t entry = 0; entry < 2 * int64_t{node->pairCount}; ++entry) {
        if (!walkSubtree(cursor, walk)) return false;
      }
      visit.tablePairCount = 0;
      break;
    default:
      // Light userdata included: walks serve plain data only.
      tq::packed::reportUnimplemented(node->kind);
      return false;
  }
  walk.tell(visit);
  if (walk.freeing()) std::free(node);
  return true;
}

}  // namespace

TqTransitCargo *TqTransitQueue_newCargo(void) {
  return static_cast<TqTransitCargo *>(std::calloc(1, sizeof(TqTransitCargo)));
}

TqTransitCargoNode *TqTransitCargo_pushNil(TqTransitCargo *cargo) {
  return appendNode(cargo, TqTransitKind_nil, sizeof(TqTransitCargoNode));
}

TqTransitCargoNode *TqTransitCargo_pushBoolean(TqTransitCargo *cargo, int32_t value) {
  TqTransitCargoNode *node = appendNode(cargo, TqTransitKind_boolean, sizeof(TqTransitCargoNode));
  node->booleanValue = value;
  return node;
}

TqTransitCargoNode *TqTransitCargo_pushLightUserData(TqTransitCargo *cargo, void *pointer) {
  TqTransitCargoNode *node =
      appendNode(cargo, TqTransitKind_lightUserdata, sizeof(TqTransitCargoNode));
  node->pointer = pointer;
  return node;
}

TqTransitCargoNode *TqTransitCargo_pushNumber(TqTransitCargo *cargo, double value) {
  TqTransitCargoNode *node = appendNode(cargo, TqTransitKind_number, sizeof(TqTransitCargoNode));
  node->number = value;
  return node;
}

TqTransitCargoNode *TqTransitCargo_pushString(TqTransitCargo *cargo, const char *text) {
  return TqTransitCargo_pushLString(cargo, text, std::strlen(text));
}

TqTransitCargoNode *TqTransitCargo_pushLString(TqTransitCargo *cargo, const char *bytes,
                                               size_t length) {
  TqTransitCargoNode *node =
      appendNode(cargo, TqTransitKind_string, sizeof(TqTransitCargoNode) + length + 1);
  node->stringLength = length;
  std::memcpy(node + 1, bytes, length + 1);
  return node;
}

TqTransitCargoNode *TqTransitCargo_newTable(TqTransitCargo *cargo, int32_t pairCount) {
  TqTransitCargoNode *node = appendNode(cargo, TqTransitKind_table, sizeof(TqTransitCargoNode));
  node->pairCount = pairCount;
  return node;
}

TqTransitCargoNode *TqTransitCargo_pushDirectObject(TqTransitCargo *cargo,
                                                    const TqDirectObjectClass *objectClass,
                                                    void *object, int32_t canUseMoveSemantics) {
  TqTransitCargoNode *node =
      appendNode(cargo, TqTransitKind_directObject, directObjectNodeSize(objectClass));
  node->directObject.objectClass = objectClass;
  node->directObject.object = object;
  node->directObject.canUseMoveSemantics = canUseMoveSemantics;
  return node;
}

TqTransitCargoNode *TqTransitCargo_pushTransitQueue(TqTransitCargo *cargo, TqTransitQueue *queue,
                                                    int32_t canUseMoveSemantics) {
  return TqTransitCargo_pushDirectObject(cargo, &TqTransitQueue_Class, queue, canUseMoveSemantics);
}

TqTransitCargoNode *TqTransitCargo_pushTransitCargo(TqTransitCargo *cargo, TqTransitCargo *inner) {
  TqTransitCargoNode *node =
      appendNode(cargo, TqTransitKind_nestedCargo, sizeof(TqTransitCargoNode));
  node->inner = inner;
  return node;
}

int TqTransitCargo_iterateCargo(TqTransitCargo *cargo, TqTransitCargoVisitor callback,
                                void *context) {
  checkCargo(cargo);
  const Walk walk{callback, context};
  TqTransitCargoNode *cursor = cargo->first;
  while (cursor) {
    if (!walkSubtree(cursor, walk)) return 0;
  }
  return 1;
}

void TqTransitCargo_releaseCargo(TqTransitCargo *cargo) {
  checkCargo(cargo);
  // The first tree only; a node the walk cannot take (a direct object's release is its
  // class's business) is left alone, and so is a table holding one.
  TqTransitCargoNode *cursor = cargo->first;
  if (cursor) walkSubtree(cursor, Walk{nullptr, TqTransitCargo_freeingWalk});
  std::free(cargo);
}
