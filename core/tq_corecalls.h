// The internal interface of our additions to the Lua core: what the patched core calls in
// core/*.cpp, and helpers those files share. Included by the core's own files only.
#ifndef TQ_CORECALLS_H
#define TQ_CORECALLS_H

#include <atomic>

#include "lua.h"

#include "lobject.h"
#include "lopcodes.h"
#include "lstate.h"

// The instruction at pc as compiled: a halt is read through its record. A HALT without a
// record (only a corrupt binary chunk holds one) comes back as it is.
inline Instruction tqcore_instruction(const Proto *p, int pc) {
  const Instruction i = p->code[pc];
  if (GET_OPCODE(i) == OP_HALT && GETARG_Bx(i) < p->sizehalts) return p->halts[GETARG_Bx(i)].instruction;
  return i;
}

// Runs the hook of the halt at pc, the running instruction of L's current Lua function, and
// returns the instruction to execute in its place (the one it replaced, read afresh, since
// the hook may have cleared or moved halts).
Instruction tqcore_runhalt(lua_State *L, const Instruction *pc);

// Whether lua_trigger was called since the count was last taken.
inline bool tqcore_triggered(lua_State *L) {
  return G(L)->triggercount.load(std::memory_order_relaxed) != 0;
}

// The interpreter's per-instruction test, once the mask has a line, count or trigger bit:
// the count ran out, line hooks are on, or a trigger is pending. A trigger-only mask, which
// a debugged universe runs under all the time, takes the short way; a macro, because as an
// inline function the compiler lays out the interpreter loop worse.
#define tqcore_hookdue(L)                                                                   \
  (__builtin_expect((L)->hookmask & (LUA_MASKLINE | LUA_MASKCOUNT), 0)                      \
       ? (--(L)->hookcount == 0 || ((L)->hookmask & LUA_MASKLINE) || tqcore_triggered(L))   \
       : tqcore_triggered(L))

// Takes the trigger count and, when it was not 0, reports it to the hook.
void tqcore_triggerhook(lua_State *L);

// The prototype of the Lua function at idx; null for anything else (C functions included).
inline Proto *tqcore_protoAt(lua_State *L, int idx) {
  if (lua_type(L, idx) != LUA_TFUNCTION || lua_iscfunction(L, idx)) return nullptr;
  return static_cast<const Closure *>(lua_topointer(L, idx))->l.p;
}

#endif
