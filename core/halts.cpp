// Halts: breakpoints planted in a prototype's code by replacing one instruction with
// OP_HALT, whose Bx names the record that keeps the replaced instruction and the hook.
#define LUA_CORE

#include "lua.h"

#include "ldo.h"
#include "lmem.h"
#include "lobject.h"
#include "lopcodes.h"
#include "lstate.h"

#include "tq_corecalls.h"

namespace {

const int kNotPlaced = -1;

// Opcodes whose next instruction is their jump.
bool ownsNextJump(OpCode op) {
  return op == OP_EQ || op == OP_LT || op == OP_LE || op == OP_TEST || op == OP_TESTSET ||
         op == OP_TFORLOOP;
}

// Opcodes that CLOSURE uses as the words naming its upvalues.
bool isUpvalueWord(OpCode op) { return op == OP_MOVE || op == OP_GETUPVAL; }

// Moves i back off a pseudo-instruction onto the instruction that reads it, since only
// instructions the interpreter dispatches can run a halt.
int ownerOf(const Proto *p, int i) {
  if (i == 0) return i;
  const Instruction here = tqcore_instruction(p, i);
  const Instruction before = tqcore_instruction(p, i - 1);
  if (GET_OPCODE(here) == OP_JMP && ownsNextJump(GET_OPCODE(before))) return i - 1;
  if (GET_OPCODE(before) == OP_SETLIST && GETARG_C(before) == 0) return i - 1;
  if (isUpvalueWord(GET_OPCODE(here))) {
    int j = i - 1;
    while (j >= 0 && isUpvalueWord(GET_OPCODE(tqcore_instruction(p, j)))) j--;
    if (j < 0) return i;
    const Instruction closure = tqcore_instruction(p, j);
    if (GET_OPCODE(closure) == OP_CLOSURE && i - j <= p->p[GETARG_Bx(closure)]->nups) return j;
  }
  return i;
}

// Plants a halt at instruction index i (or on the instruction owning it); returns where it
// stands, or kNotPlaced when Bx cannot name another record.
int placeHalt(lua_State *L, Proto *p, int i, lua_Hook hook) {
  i = ownerOf(p, i);
  const Instruction at = p->code[i];
  if (GET_OPCODE(at) == OP_HALT) {
    p->halts[GETARG_Bx(at)].hook = hook;
    return i;
  }
  if (p->sizehalts > MAXARG_Bx) return kNotPlaced;
  const int n = p->sizehalts;
  luaM_reallocvector(L, p->halts, n, n + 1, Halt);  // raises before anything changed
  p->sizehalts = n + 1;
  p->halts[n].instruction = at;
  p->halts[n].pc = i;
  p->halts[n].hook = hook;
  p->code[i] = CREATE_ABx(OP_HALT, 0, n);
  return i;
}

// Removes the halt at instruction index i; the last record fills the gap. Returns 1, or 0
// when no halt stands there.
int removeHalt(lua_State *L, Proto *p, int i) {
  const Instruction at = p->code[i];
  if (GET_OPCODE(at) != OP_HALT) return 0;
  const int k = GETARG_Bx(at);
  const int last = p->sizehalts - 1;
  const Halt removed = p->halts[k];
  const Halt moved = p->halts[last];
  luaM_reallocvector(L, p->halts, p->sizehalts, last, Halt);  // raises before anything changed
  p->sizehalts = last;
  p->code[i] = removed.instruction;
  if (k != last) {
    p->halts[k] = moved;
    SETARG_Bx(p->code[moved.pc], k);
  }
  return 1;
}

// The first instruction of a source line, searched in code order up to the first
// instruction of a later line; -1 when there is none.
int firstInstructionOfLine(const Proto *p, int line) {
  if (p->lastlinedefined != 0 && (line < p->linedefined || line > p->lastlinedefined)) return -1;
  for (int i = 0; i < p->sizelineinfo; i++) {
    if (p->lineinfo[i] == line) return i;
    if (p->lineinfo[i] > line) break;
  }
  return -1;
}

// The halted Lua function's prototype, when there is a Lua function at stack index 1.
Proto *haltedFunction(lua_State *L) { return lua_gettop(L) >= 1 ? tqcore_protoAt(L, 1) : nullptr; }

// Puts a halt's hook in the thread's place for the time of its call, and the thread's own
// hook back afterwards (also when the hook raises), unless the halt's hook installed another.
class HaltHookScope {
public:
  HaltHookScope(lua_State *L, lua_Hook hook) : L_(L), hook_(hook), threadHook_(L->hook) {
    L->hookmask = cast_byte(L->hookmask | LUA_MASKHALT);
    L->hook = hook;
  }
  ~HaltHookScope() {
    L_->hookmask = cast_byte(L_->hookmask & ~LUA_MASKHALT);
    if (L_->hook == hook_) L_->hook = threadHook_;
  }
  HaltHookScope(const HaltHookScope &) = delete;
  HaltHookScope &operator=(const HaltHookScope &) = delete;

private:
  lua_State *L_;
  lua_Hook hook_;
  lua_Hook threadHook_;
};

}  // namespace

Instruction tqcore_runhalt(lua_State *L, const Instruction *pc) {
  const Proto *p = ci_func(L->ci)->l.p;
  const int index = cast_int(pc - p->code);
  if (L->allowhook) {  // not inside a hook, so no halt's hook is in place already
    HaltHookScope scope(L, p->halts[GETARG_Bx(*pc)].hook);
    luaD_callhook(L, LUA_HOOKHALT, p->lineinfo ? p->lineinfo[index] : -1);
  }
  return tqcore_instruction(p, index);
}

LUA_API int lua_sethalt(lua_State *L, int pc, lua_Hook hook) {
  Proto *p = haltedFunction(L);
  if (!p || pc < 1 || pc > p->sizecode) return 0;
  return placeHalt(L, p, pc - 1, hook) + 1;
}

LUA_API int lua_clearhalt(lua_State *L, int pc) {
  Proto *p = haltedFunction(L);
  if (!p || pc < 1 || pc > p->sizecode) return 0;
  return removeHalt(L, p, pc - 1);
}

LUA_API void lua_gethalts(lua_State *L) {
  const Proto *p = haltedFunction(L);
  if (!p) {
    lua_pushnil(L);
    return;
  }
  lua_createtable(L, p->sizehalts, 0);
  for (int k = 0; k < p->sizehalts; k++) {
    lua_pushinteger(L, p->halts[k].pc + 1);
    lua_rawseti(L, -2, k + 1);
  }
}

LUA_API int lua_setprotohalt(lua_State *L, void *proto, int line, lua_Hook hook) {
  Proto *p = static_cast<Proto *>(proto);
  const int i = firstInstructionOfLine(p, line);
  return i < 0 ? 0 : placeHalt(L, p, i, hook) + 1;
}

LUA_API int lua_clearprotohalt(lua_State *L, void *proto, int line) {
  Proto *p = static_cast<Proto *>(proto);
  const int i = firstInstructionOfLine(p, line);
  return i < 0 ? 0 : removeHalt(L, p, i);
}
