// Converting a cargo into a message: measure the first value tree, then write it,
// freeing each node once it is written.
#include <cstdlib>

#include "transit/cargo_internal.h"
#include "transit/packed_format.h"

namespace {

using namespace tq::packed;

// The packed size of the subtree at cursor, moving cursor past it; 0 when it has no
// packed form.
size_t measureSubtree(const TqTransitCargoNode *&cursor) {
  const TqTransitCargoNode *node = cursor;
  if (!node) return 0;
  cursor = node->next;
  switch (node->kind) {
    case TqTransitKind_nil:
    case TqTransitKind_boolean:
    case TqTransitKind_lightUserdata:
    case TqTransitKind_number:
      return kScalarSize;
    case TqTransitKind_string:
      return stringSize(node->stringLength);
    case TqTransitKind_table: {
      size_t size = kContentOffset;
      for (int64_t entry = 0; entry < 2 * int64_t{node->pairCount}; ++entry) {
        const size_t entrySize = measureSubtree(cursor);
        if (entrySize == 0) return 0;
        size += entrySize;
      }
      return size;
    }
    case TqTransitKind_directObject:
      if (const size_t size = TqDirectObject_pack(node->directObject.objectClass,
                                                  node->directObject.object, nullptr,
                                                  node->directObject.canUseMoveSemantics)) {
        return kPayloadOffset + size;
      }
      break;
    case TqTransitKind_nestedCargo: {
      const TqTransitCargoNode *inner = node->inner->first;
      const size_t size = measureSubtree(inner);
      return size ? kPayloadOffset + size : 0;
    }
    default:
      break;
  }
  reportUnimplemented(node->kind);
  return 0;
}

// Writes the subtree at cursor, which measured successfully, and frees its nodes.
size_t writeSubtree(TqTransitCargoNode *&cursor, unsigned char *destination) {
  TqTransitCargoNode *node = cursor;
  cursor = node->next;
  unsigned char *payload = destination + kPayloadOffset;
  size_t size = kScalarSize;
  write<int32_t>(destination, node->kind);
  switch (node->kind) {
    case TqTransitKind_nil:
      write<int32_t>(payload, 0);
      break;
    case TqTransitKind_boolean:
      write<int32_t>(payload, node->booleanValue);
      break;
    case TqTransitKind_lightUserdata:
      write<void *>(payload, node->pointer);
      break;
    case TqTransitKind_number:
      write<double>(payload, node->number);
      break;
    case TqTransitKind_string:
      writeString(destination, node->stringBytes(), node->stringLength);
      size = stringSize(node->stringLength);
      break;
    case TqTransitKind_table:
      size = kContentOffset;
      for (int64_t entry = 0; entry < 2 * int64_t{node->pairCount}; ++entry) {
        size += writeSubtree(cursor, destination + size);
      }
      write<int32_t>(payload, node->pairCount);
      break;
    case TqTransitKind_directObject:
      size = kPayloadOffset + TqDirectObject_pack(node->directObject.objectClass,
                                                  node->directObject.object, payload,
                                                  node->directObject.canUseMoveSemantics);
      break;
    case TqTransitKind_nestedCargo: {
      TqTransitCargoNode *inner = node->inner->first;
      size = kPayloadOffset + writeSubtree(inner, payload);
      std::free(node->inner);
      break;
    }
    default:
      abortTransit("Transit cargo changed between measuring and writing\n");
  }
  std::free(node);
  return size;
}

}  // namespace

TqTransitMessage *TqTransitMessage_fromCargo(TqTransitCargo *cargo) {
  const TqTransitCargoNode *measuring = cargo->first;
  const size_t size = measureSubtree(measuring);
  if (size == 0) return nullptr;
  TqTransitMessage *message = allocateMessage(size);
  TqTransitCargoNode *writing = cargo->first;
  auto *packed = static_cast<unsigned char *>(TqTransitMessage_packedValue(message));
  if (writeSubtree(writing, packed) != size) {
    abortTransit("Transit cargo written with a size other than its measure\n");
  }
  std::free(cargo);
  return message;
}
