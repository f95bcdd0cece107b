#include "runtime/setup.h"

#include <tqkernel/exceptions.h>
#include <tqkernel/toolkit.h>

#include <cstdint>
#include <cstdio>
#include <new>

#include "runtime/universe_internal.h"

struct TqLuaSetupProc {
  TqLuaSetupProc *next;
  uint32_t stateKind;
  lua_CFunction proc;
  int32_t order;
  char name[48];
};

std::atomic<bool> tq::sCreatedAnyUniverses{false};

namespace {

TqLuaSetupProc *sKernelSetupProcs = nullptr;
TqLuaSetupProc *sApplicationSetupProcs = nullptr;
// Per thread: universes may be set up on several threads at once.
thread_local bool sReportingSetupFailure = false;

TqLuaSetupProc *&headOf(tq::SetupList list) {
  return list == tq::SetupList::kernel ? sKernelSetupProcs : sApplicationSetupProcs;
}

void reportSetupFailure(lua_State *L, const TqLuaSetupProc &record) {
  if (sReportingSetupFailure) TqThrowProgramError("Unable to launch the application.");
  sReportingSetupFailure = true;
  try {
    TqLua_printf(L, "Lua state setup proc %s failed", record.name);
    TqLua_dumpStack(L, "Contents of stack after failure");
  } catch (...) {
  }
  sReportingSetupFailure = false;
  if (lua_type(L, -1) == LUA_TSTRING) {
    luaL_error(L, "Lua state setup proc \"%s\" failed: %s", record.name, lua_tostring(L, -1));
  }
  luaL_error(L, "Lua state setup proc \"%s\" failed", record.name);
}

void runList(lua_State *L, unsigned stateKind, TqLuaUniverse *universe,
             const TqLuaSetupProc *record) {
  for (; record; record = record->next) {
    if (record->stateKind != stateKind) continue;
    lua_settop(L, 0);
    if (lua_cpcall(L, record->proc, universe) != 0) reportSetupFailure(L, *record);
  }
}

}  // namespace

void tq::addSetupProc(SetupList list, int order, const char *name, lua_CFunction proc,
                      unsigned stateKind) {
  if (!name) TqThrowProgramError("Assertion failed: name");
  if (!proc) TqThrowProgramError("Assertion failed: setupProc");
  if (sCreatedAnyUniverses) TqThrowProgramError("Assertion failed: !sCreatedAnyUniverses");
  TqLuaSetupProc *record = new (std::nothrow) TqLuaSetupProc;
  if (!record) TqThrowProgramError("Assertion failed: newProc");
  record->stateKind = stateKind;
  record->proc = proc;
  record->order = order;
  std::snprintf(record->name, sizeof record->name, "%s", name);
  TqLuaSetupProc **link = &headOf(list);
  while (*link && (*link)->order <= order) link = &(*link)->next;
  record->next = *link;
  *link = record;
}

void tq::runSetupProcs(lua_State *L, unsigned stateKind, TqLuaUniverse *universe) {
  if (!L) TqThrowProgramError("Assertion failed: L");
  runList(L, stateKind, universe, sKernelSetupProcs);
  if (!universe->kernelOnly) runList(L, stateKind, universe, sApplicationSetupProcs);
}

void TqLuaState_addSetupProc(int order, const char *name, lua_CFunction proc,
                             unsigned stateKind) {
  tq::addSetupProc(tq::SetupList::application, order, name, proc, stateKind);
}
