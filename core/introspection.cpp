// Introspection for the debugger: prototypes described as Lua tables, instruction words
// decoded, the extra arguments of a call, the source of a prototype and chunk identifiers.
#define LUA_CORE

#include <cstdint>
#include <cstdlib>

#include "lua.h"

#include "lapi.h"
#include "lauxlib.h"
#include "ldo.h"
#include "lgc.h"
#include "lobject.h"
#include "lopcodes.h"
#include "lstate.h"

#include "tq_corecalls.h"
#include "tq_corelib.h"

namespace {

// The most slots a description uses at one level of nesting: the description, a list, an
// entry table and a value.
const int kDescriptionSlots = 4;

void setNumber(lua_State *L, const char *key, lua_Number value) {
  lua_pushnumber(L, value);
  lua_setfield(L, -2, key);
}

void setString(lua_State *L, const char *key, const char *value) {
  lua_pushstring(L, value);
  lua_setfield(L, -2, key);
}

// Pushes a TString-or-null as a string, or nil.
void pushName(lua_State *L, const TString *name) {
  if (name)
    lua_pushlstring(L, getstr(name), name->tsv.len);
  else
    lua_pushnil(L);
}

// Pushes a list of count entries, entry k pushed by pushEntry(k).
template <typename PushEntry>
void pushList(lua_State *L, int count, PushEntry pushEntry) {
  lua_createtable(L, count, 0);
  for (int k = 0; k < count; k++) {
    pushEntry(k);
    lua_rawseti(L, -2, k + 1);
  }
}

void pushConstant(lua_State *L, const TValue *o) {
  switch (ttype(o)) {
    case LUA_TBOOLEAN: lua_pushboolean(L, bvalue(o)); break;
    case LUA_TNUMBER: lua_pushnumber(L, nvalue(o)); break;
    case LUA_TSTRING: pushName(L, rawtsvalue(o)); break;
    default: lua_pushnil(L); break;
  }
}

void pushDescription(lua_State *L, const Proto *p, const char *source) {
  luaL_checkstack(L, kDescriptionSlots, "out of stack space");
  lua_createtable(L, 0, 17);
  setNumber(L, "is_vararg", p->is_vararg);
  setNumber(L, "lineDefined", p->linedefined);
  setNumber(L, "lastlineDefined", p->lastlinedefined);
  setNumber(L, "pcbase", p->pcbase);
  setNumber(L, "maxstacksize", p->maxstacksize);
  setNumber(L, "numParams", p->numparams);
  setNumber(L, "nups", p->nups);
  setString(L, "source", source);
  pushList(L, p->sizecode, [&](int i) { lua_pushnumber(L, p->code[i]); });
  lua_setfield(L, -2, "code");
  pushList(L, p->sizehalts, [&](int k) {
    lua_createtable(L, 0, 2);
    setNumber(L, "instruction", p->halts[k].instruction);
    setNumber(L, "index", p->halts[k].pc + 1);
  });
  lua_setfield(L, -2, "halts");
  pushList(L, p->sizep, [&](int j) { pushDescription(L, p->p[j], ""); });
  lua_setfield(L, -2, "functions");
  pushList(L, p->sizek, [&](int k) { pushConstant(L, &p->k[k]); });
  lua_pushvalue(L, -1);
  lua_setfield(L, -3, "scalars");
  lua_setfield(L, -2, "constants");
  pushList(L, p->sizelineinfo, [&](int i) { lua_pushinteger(L, p->lineinfo[i]); });
  lua_setfield(L, -2, "lines");
  pushList(L, p->sizeupvalues, [&](int u) { pushName(L, p->upvalues[u]); });
  lua_setfield(L, -2, "upvalues");
  pushList(L, p->sizelocvars, [&](int v) {
    const LocVar &local = p->locvars[v];
    lua_createtable(L, 0, 3);
    pushName(L, local.varname);
    lua_setfield(L, -2, "varname");
    setNumber(L, "startpc", local.startpc);
    setNumber(L, "endpc", local.endpc);
  });
  lua_setfield(L, -2, "locals");
}

// h = h * 31 + c over the name's bytes taken as signed, made non-negative.
int32_t chunkIdOf(const char *name) {
  uint32_t h = 0;
  for (const char *c = name; *c; c++) h = h * 31u + static_cast<uint32_t>(static_cast<signed char>(*c));
  const int32_t id = static_cast<int32_t>(h);
  return id == INT32_MIN ? id : std::abs(id);
}

void stampChunkId(Proto *p, int32_t id) {
  p->chunkid[0] = p->chunkid[1] = id;
  for (int j = 0; j < p->sizep; j++) stampChunkId(p->p[j], id);
}

}  // namespace

LUA_API int lua_describefunction(lua_State *L) {
  const Proto *p = lua_gettop(L) >= 1 ? tqcore_protoAt(L, -1) : nullptr;
  if (!p) return 0;
  pushDescription(L, p, p->source ? getstr(p->source) : "");
  return 1;
}

LUA_API int lua_disassemble(lua_State *L, unsigned int instruction) {
  const Instruction i = instruction;
  const OpCode op = GET_OPCODE(i);
  if (op >= NUM_OPCODES) {
    lua_pushliteral(L, "invalid opcode");
    lua_error(L);
  }
  lua_createtable(L, 0, 5);
  lua_pushstring(L, luaP_opnames[op]);
  lua_setfield(L, -2, "opcode");
  lua_pushboolean(L, testTMode(op));
  lua_setfield(L, -2, "test");
  setNumber(L, "A", GETARG_A(i));
  const bool usesB = getBMode(op) != OpArgN;
  switch (getOpMode(op)) {
    case iABC:
      if (usesB) setNumber(L, "B", GETARG_B(i));
      if (getCMode(op) != OpArgN) setNumber(L, "C", GETARG_C(i));
      break;
    case iABx:
      if (usesB) setNumber(L, "Bx", GETARG_Bx(i));
      break;
    case iAsBx:
      if (usesB) setNumber(L, "sBx", GETARG_sBx(i));
      break;
  }
  return 1;
}

LUA_API int lua_getvarargs(lua_State *L, lua_Debug *ar) {
  luaD_checkstack(L, 2);
  const CallInfo *ci = L->base_ci + ar->i_ci;
  if (!isLua(ci)) {
    lua_pushnil(L);
    return 1;
  }
  const int numparams = ci_func(ci)->l.p->numparams;
  const int n = cast_int(ci->base - ci->func) - 1 - numparams;
  if (n < 0) {
    lua_pushnil(L);
    return 1;
  }
  lua_createtable(L, n, 1);
  setNumber(L, "n", n);
  ci = L->base_ci + ar->i_ci;  // the collector may have moved the call records and the stack
  for (int k = 1; k <= n; k++) {
    luaA_pushobject(L, ci->func + numparams + k);
    lua_rawseti(L, -2, k);
  }
  return 1;
}

LUA_API const char *lua_getprotosource(lua_State *L, void *proto) {
  const Proto *p = static_cast<const Proto *>(proto);
  if (isdead(G(L), obj2gco(p)) || !p->source) return nullptr;
  return getstr(p->source);
}

LUA_API int lua_applychunkid(lua_State *L, int idx, const char *chunkname) {
  Proto *p = tqcore_protoAt(L, idx);
  if (!p) return 0;
  stampChunkId(p, chunkIdOf(chunkname));
  return 1;
}

int tqcore_db_getvarargs(lua_State *L) {
  int arg = 0;
  lua_State *L1 = L;
  if (lua_isthread(L, 1)) {
    arg = 1;
    L1 = lua_tothread(L, 1);
  }
  lua_Debug ar;
  if (!lua_getstack(L1, luaL_checkint(L, arg + 1), &ar))
    return luaL_argerror(L, arg + 1, "level out of range");
  lua_getvarargs(L1, &ar);
  lua_xmove(L1, L, 1);
  return 1;
}
