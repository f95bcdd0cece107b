// Reading and writing the fields of packed values. Fields go through memcpy: a direct
// object whose instance size is not a multiple of 8 leaves the values after it unaligned.
#ifndef TQ_TRANSIT_PACKED_FORMAT_H
#define TQ_TRANSIT_PACKED_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include <tqkernel/transit.h>

namespace tq {

// The packer behind TqTransitValue_pack.
size_t packTransitValue(lua_State *L, int index, int canUseMoveSemantics, void *destination);

}  // namespace tq

namespace tq::packed {

// Kind code at 0, padding at 4, payload at 8.
constexpr size_t kPayloadOffset = 8;
// A scalar's payload is one 8-byte slot.
constexpr size_t kScalarSize = 16;
// A table's pairs and a string's bytes start after the count or length slot.
constexpr size_t kContentOffset = 16;

template <typename T>
inline T read(const unsigned char *at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

template <typename T>
inline void write(unsigned char *at, T value) {
  std::memcpy(at, &value, sizeof value);
}

inline int32_t kind(const unsigned char *packed) { return read<int32_t>(packed); }

// The length and its terminating zero, rounded up to a multiple of 8.
inline size_t stringSize(size_t length) { return kContentOffset + ((length + 8) / 8) * 8; }

// Writes a string value: kind, length, bytes and the terminating zero. The filler after
// the zero is left as it was.
inline void writeString(unsigned char *destination, const char *bytes, size_t length) {
  write<int32_t>(destination, TqTransitKind_string);
  write<uint64_t>(destination + kPayloadOffset, length);
  std::memcpy(destination + kContentOffset, bytes, length);
  destination[kContentOffset + length] = 0;
}

struct MessageDeleter {
  void operator()(TqTransitMessage *message) const { TqTransitMessage_free(message); }
};
using MessagePtr = std::unique_ptr<TqTransitMessage, MessageDeleter>;

// A message of size bytes of packed value, all of them 0xAB, with a null link.
TqTransitMessage *allocateMessage(size_t size);

// Aborts the process for corruption that cannot be reported to anyone.
[[noreturn]] void abortTransit(const char *why);

// Prints "Transit of type %d unimplemented\n" to standard error.
void reportUnimplemented(int kind);

}  // namespace tq::packed

#endif
