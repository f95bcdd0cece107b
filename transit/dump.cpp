// Printing packed values to standard error, for messages that were never delivered.
#include <cstdio>

#include "transit/direct_object_internal.h"
#include "transit/extensions.h"
#include "transit/packed_format.h"

namespace {

using namespace tq::packed;

void indent(int depth) {
  for (int level = 0; level < depth; ++level) std::fputs("\t  ", stderr);
}

size_t dumpValue(const unsigned char *packed, int depth);

size_t dumpTable(const unsigned char *packed, int depth) {
  const int32_t pairCount = read<int32_t>(packed + kPayloadOffset);
  size_t size = kContentOffset;
  indent(depth);
  std::fputs("{\n", stderr);
  for (int32_t pair = 0; pair < pairCount; ++pair) {
    indent(depth + 1);
    std::fputs("[ ", stderr);
    size += dumpValue(packed + size, depth + 1);
    std::fputs(" ] = ", stderr);
    size += dumpValue(packed + size, depth + 1);
    std::fputs(",\n", stderr);
  }
  indent(depth);
  std::fputs("}", stderr);
  return size;
}

size_t dumpByExtension(const unsigned char *packed) {
  const int32_t kind = tq::packed::kind(packed);
  const tq::ClaimedExtension claimed = tq::claimTransitExtension(nullptr, 0, kind);
  if (!claimed.extension) {
    std::fprintf(stderr, "Unknown lua type: %d", kind);
    abortTransit("\n");
  }
  return kPayloadOffset + claimed.extension->dump(claimed.kind, packed + kPayloadOffset);
}

size_t dumpValue(const unsigned char *packed, int depth) {
  const unsigned char *payload = packed + kPayloadOffset;
  switch (kind(packed)) {
    case TqTransitKind_none:
    case TqTransitKind_nil:
      std::fputs("nil", stderr);
      return kScalarSize;
    case TqTransitKind_boolean:
      std::fputs(read<int32_t>(payload) ? "true" : "false", stderr);
      return kScalarSize;
    case TqTransitKind_lightUserdata:
      std::fprintf(stderr, "LightUserData( %p )", read<void *>(payload));
      return kScalarSize;
    case TqTransitKind_number:
      std::fprintf(stderr, "%lf", read<double>(payload));
      return kScalarSize;
    case TqTransitKind_string: {
      const auto length = static_cast<size_t>(read<uint64_t>(payload));
      std::fputc('"', stderr);
      std::fwrite(packed + kContentOffset, 1, length, stderr);
      std::fputc('"', stderr);
      return stringSize(length);
    }
    case TqTransitKind_table:
      return dumpTable(packed, depth);
    case TqTransitKind_directObject:
      // Nothing to show: the class record and a copy of the instance bytes.
      return kPayloadOffset + tq::packedDirectObjectSize(payload);
    default:
      return dumpByExtension(packed);
  }
}

}  // namespace

size_t TqTransitValue_dump(const void *packed) {
  return dumpValue(static_cast<const unsigned char *>(packed), 0);
}
