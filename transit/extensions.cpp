#include "transit/extensions.h"

#include <deque>

namespace {

// Entries never move or go away: callers keep the pointers that registration returns.
// Not locked: every extension is registered before transit starts on other threads.
std::deque<TqTransitExtension> &extensionList() {
  static std::deque<TqTransitExtension> list;
  return list;
}

}  // namespace

tq::ClaimedExtension tq::claimTransitExtension(lua_State *L, int index, int32_t kind) {
  for (const TqTransitExtension &extension : extensionList()) {
    if (const int32_t claimed = extension.claim(L, index, kind)) return {&extension, claimed};
  }
  return {nullptr, 0};
}

const TqTransitExtension *TqTransitQueue_registerExtension(const TqTransitExtension *extension) {
  return &extensionList().emplace_back(*extension);
}
