#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "transit/packed_format.h"

TqTransitMessage *tq::packed::allocateMessage(size_t size) {
  auto *message = static_cast<TqTransitMessage *>(std::malloc(sizeof(TqTransitMessage) + size));
  // Unwritten padding and filler read as 0xAB.
  std::memset(message, 0xAB, sizeof(TqTransitMessage) + size);
  message->size = size;
  message->next = nullptr;
  return message;
}

void TqTransitMessage_free(TqTransitMessage *message) { std::free(message); }

void tq::packed::abortTransit(const char *why) {
  std::fputs(why, stderr);
  std::abort();
}

void tq::packed::reportUnimplemented(int kind) {
  std::fprintf(stderr, "Transit of type %d unimplemented\n", kind);
}
