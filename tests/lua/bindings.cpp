// The library's native operations as Lua functions (global T) for the Lua test scripts.
// Each binding calls one operation on its arguments and returns what it answers.
#include "lua/bindings.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

std::string sLogged, sThrown, sCaptured, sOpened, sRefusedPrefix;
bool sRefuseLibraries = false;
TqLuaLogOutput sPreviousOutput = nullptr;
TqLuaCodeCapture sCapture{};
int sHaltHits = 0, sLastHaltPc = -1;

int ret(lua_State *L, lua_Number value) { return lua_pushnumber(L, value), 1; }
int ret(lua_State *L, const char *text) { return lua_pushstring(L, text), 1; }
int flag(lua_State *L, bool value) { return lua_pushboolean(L, value), 1; }
int integer(lua_State *L, int index) { return static_cast<int>(lua_tointeger(L, index)); }
// Everything from index on, as results.
int from(lua_State *L, int index) { return lua_gettop(L) - index + 1; }

const char kKeys[2] = {0, 0};
const void *key(lua_State *L, int index) { return lua_isnil(L, index) ? nullptr : &kKeys[integer(L, index)]; }

const TqNamedInteger kLetterEntries[] = {{"a", 1}, {"b", 2}, {"first", 1}, {nullptr, 0}};
const TqNamedInteger kNoEntries[] = {{nullptr, 0}};
const TqNamedIntegers kLetters = {"Letter", kLetterEntries}, kUnnamed = {nullptr, kNoEntries};
const TqNamedIntegers kEmpty = {"Empty", nullptr};
// The record named by the argument: "unnamed", "empty", "none" (NULL), else Letter.
const TqNamedIntegers *record(lua_State *L, int index) {
  const std::string which = luaL_optstring(L, index, "");
  if (which == "none") return nullptr;
  return which == "unnamed" ? &kUnnamed : which == "empty" ? &kEmpty : &kLetters;
}

int answer(lua_State *L) { return ret(L, 42); }
int upvalues(lua_State *L) { return lua_pushvalue(L, lua_upvalueindex(1)), lua_pushvalue(L, lua_upvalueindex(2)), 2; }
const luaL_Reg kFunctionLists[][3] = {{{"one", answer}, {"two", answer}, {nullptr, nullptr}},
                                      {{"fine", answer}, {nullptr, answer}, {nullptr, nullptr}},
                                      {{"missing", nullptr}, {nullptr, nullptr}, {nullptr, nullptr}}};

void recordCapture(lua_State *, const char *source, size_t length, const char *name) {
  sCaptured.append(source, length).append("|").append(name ? name : "(null)").append("\n");
}

void throwingCapture(lua_State *, const char *, size_t, const char *) { throw std::runtime_error("hook failed"); }
void raisingCapture(lua_State *L, const char *, size_t, const char *) { luaL_error(L, "hook raised"); }

[[noreturn]] void raiseFormatted(lua_State *L, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  TqLua_errorText_va(L, format, arguments);
}

// Halt hooks: record the halted instruction; the yielding one also yields at every other hit.
void recordHalt(lua_State *L, lua_Debug *ar) {
  sHaltHits += ar->event == LUA_HOOKHALT;
  lua_getinfo(L, "c", ar);
  sLastHaltPc = ar->currentpc;
}
void yieldingHalt(lua_State *L, lua_Debug *ar) {
  static bool yielding = false;
  recordHalt(L, ar);
  if ((yielding = !yielding)) lua_yield(L, 0);
}
void silentHalt(lua_State *, lua_Debug *) {}
void countHook(lua_State *, lua_Debug *) {}
std::string sSeenHook;  // what inspectingHalt saw
std::string hookName(lua_State *L);
void inspectingHalt(lua_State *L, lua_Debug *) { sSeenHook = hookName(L); }
void raisingHalt(lua_State *L, lua_Debug *) { luaL_error(L, "raised in halt"); }
void replacingHalt(lua_State *L, lua_Debug *) { lua_sethook(L, silentHalt, LUA_MASKCOUNT, 1000000); }
lua_Hook haltHook(lua_State *L, int index) {
  const std::string kind = luaL_optstring(L, index, "");
  return kind == "yield" ? yieldingHalt : kind == "silent" ? silentHalt : kind == "inspect" ? inspectingHalt
       : kind == "raise" ? raisingHalt : kind == "replace" ? replacingHalt : recordHalt;
}
// The thread's hook by name, and its mask.
std::string hookName(lua_State *L) {
  const lua_Hook hook = lua_gethook(L);
  const char *name = hook == countHook ? "count" : hook == inspectingHalt ? "inspect" : hook == silentHalt ? "silent"
                   : hook ? "other" : "none";
  return std::string(name) + " " + std::to_string(lua_gethookmask(L));
}

// Trigger events: their counts, and how many other events came.
std::string sTriggers;
int sOtherEvents = 0;
void triggerHook(lua_State *, lua_Debug *ar) {
  if (ar->event != LUA_HOOKTRIGGER) return void(sOtherEvents++);
  sTriggers += std::to_string(ar->currentline) + " ";
}

// The prototype hook's record: created prototypes in order, live ones, frees, and faults
// (reported twice, or freed by the collector while not dead).
struct ProtoRecord {
  std::vector<void *> created;
  std::set<void *> live;
  int freed = 0, faults = 0;
  bool closing = false;  // the state is being closed: what is freed need not be dead
} sProtos;
void protoHook(lua_State *L, void *proto, int event) {
  if (event == LUA_PROTOCREATED) {
    return sProtos.faults += !sProtos.live.insert(proto).second, sProtos.created.push_back(proto);
  }
  sProtos.faults += sProtos.live.erase(proto) != 1 || (!sProtos.closing && lua_getprotosource(L, proto) != nullptr);
  sProtos.freed++;
}
// protos(): the record as counts (created, freed, live, faults) and a table of the created.
int protos(lua_State *L) {
  lua_createtable(L, static_cast<int>(sProtos.created.size()), 0);
  for (size_t i = 0; i < sProtos.created.size(); i++) {
    lua_pushlightuserdata(L, sProtos.created[i]);
    lua_rawseti(L, -2, static_cast<int>(i + 1));
  }
  return ret(L, sProtos.created.size()), ret(L, sProtos.freed), ret(L, sProtos.live.size()), ret(L, sProtos.faults), 5;
}

// Host hooks that record what they are asked and refuse paths under sRefusedPrefix.
FILE *openFile(const char *path, const char *mode) {
  sOpened.append(path).append(" ").append(mode).append("\n");
  const bool refused = !sRefusedPrefix.empty() && std::string(path).rfind(sRefusedPrefix, 0) == 0;
  return refused ? nullptr : std::fopen(path, mode);
}
void *loadLibrary(const char *path) {
  sOpened.append("load ").append(path).append("\n");
  return sRefuseLibraries ? nullptr : dlopen(path, RTLD_NOW);
}

// Captures standard error for its lifetime; text() ends the capture early.
class StderrCapture {
public:
  StderrCapture() { testing::internal::CaptureStderr(); }
  ~StderrCapture() { text(); }
  const std::string &text() {
    if (capturing_) text_ = testing::internal::GetCapturedStderr(), capturing_ = false;
    return text_;
  }

private:
  bool capturing_ = true;
  std::string text_;
};

// The packed value at index 1 as a string (filled with 0xAB first), its size and what went
// to standard error; 0 when it cannot be packed.
int pack(lua_State *L) {
  StderrCapture capture;
  const size_t size = TqTransitValue_pack(L, 1, lua_toboolean(L, 2), nullptr);
  std::string bytes(size, '\xAB');
  if (size && TqTransitValue_pack(L, 1, lua_toboolean(L, 2), bytes.data()) != size) bytes = "sizes differ";
  return ret(L, size), lua_pushlstring(L, bytes.data(), bytes.size()), ret(L, capture.text().c_str()), 3;
}

// The packed bytes of argument 1, 8-byte aligned.
std::vector<uint64_t> packedBytes(lua_State *L) {
  size_t size = 0;
  const char *bytes = luaL_checklstring(L, 1, &size);
  std::vector<uint64_t> aligned(size / 8 + 1);
  std::memcpy(aligned.data(), bytes, size);
  return aligned;
}

// A class of plain data: 16 bytes, copied with TqDirectObject_memcpy.
const TqDirectObjectClass kPlain = {nullptr, "Plain", 16, nullptr, nullptr, TqDirectObject_memcpy, nullptr, nullptr};

// cargo(action, kind, value, ...): a cargo of the nodes (kind, value) given, in order: kinds
// "nil", "boolean", "light", "number", "string", "table" (value: pair count), "plain" (value:
// the 16 bytes of a Plain object), "cargo" (value: a table of further arguments). Action
// "deliver" converts it and returns its value and message size (or what went to standard
// error); "walk" returns the visits, the walk's result and what went to standard error, then
// converts it; "release" releases it and returns what went to standard error.
TqTransitCargo *buildCargo(lua_State *L, int first) {
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  for (int i = first; i < lua_gettop(L); i += 2) {
    const std::string kind = luaL_checkstring(L, i);
    if (kind == "nil") TqTransitCargo_pushNil(cargo);
    if (kind == "boolean") TqTransitCargo_pushBoolean(cargo, integer(L, i + 1));
    if (kind == "light") TqTransitCargo_pushLightUserData(cargo, L);
    if (kind == "number") TqTransitCargo_pushNumber(cargo, lua_tonumber(L, i + 1));
    if (kind == "string") TqTransitCargo_pushLString(cargo, lua_tostring(L, i + 1), lua_objlen(L, i + 1));
    if (kind == "table") TqTransitCargo_newTable(cargo, integer(L, i + 1));
    if (kind == "plain") TqTransitCargo_pushDirectObject(cargo, &kPlain, const_cast<char *>(lua_tostring(L, i + 1)), 0);
    if (kind != "cargo") continue;
    const int top = lua_gettop(L);
    for (size_t k = 1; k <= lua_objlen(L, i + 1); k++) lua_rawgeti(L, i + 1, static_cast<int>(k));
    TqTransitCargo_pushTransitCargo(cargo, buildCargo(L, top + 1));
    lua_settop(L, top);
  }
  return cargo;
}

int cargo(lua_State *L) {
  const std::string action = luaL_checkstring(L, 1);
  lua_pushnil(L);  // closes the list of nodes
  TqTransitCargo *built = buildCargo(L, 2);
  StderrCapture capture;
  if (action == "release") return TqTransitCargo_releaseCargo(built), ret(L, capture.text().c_str());
  if (action == "walk") {
    std::string visits;
    const int done = TqTransitCargo_iterateCargo(built, [](void *context, const TqTransitCargoVisit *v) {
      const std::string text = v->stringBytes ? std::string(v->stringBytes, v->stringLength) : "";
      *static_cast<std::string *>(context) += std::to_string(v->kind) + ":" + std::to_string(v->booleanValue) + ":" +
          std::to_string(v->numberValue).substr(0, 4) + ":" + text + ":" + std::to_string(v->tablePairCount) +
          (v->pointerValue ? "!" : "") + " ";
    }, &visits);
    TqTransitMessage_free(TqTransitMessage_fromCargo(built));
    return lua_pushlstring(L, visits.data(), visits.size()), ret(L, done), ret(L, capture.text().c_str()), 3;
  }
  TqTransitMessage *message = TqTransitMessage_fromCargo(built);
  if (!message) return ret(L, capture.text().c_str());
  const size_t size = TqTransitValue_unpack(L, TqTransitMessage_packedValue(message));
  if (size != message->size) luaL_error(L, "unpacked %d of %d bytes", int(size), int(message->size));
  return TqTransitMessage_free(message), ret(L, size), 2;
}

// Native queue handles, as light userdata; a handle is its mark, then its core pointer.
TqTransitQueue *handle(lua_State *L, int index) { return static_cast<TqTransitQueue *>(lua_touserdata(L, index)); }
struct HandleView {
  uint32_t mark;
  void *core;
};
// release(handle [, mark]): releases the handle (a copy of it with that mark, when given);
// returns what went to standard error.
int release(lua_State *L) {
  StderrCapture capture;
  HandleView stranger{uint32_t(lua_tonumber(L, 2)), reinterpret_cast<HandleView *>(handle(L, 1))->core};
  TqTransitQueue_release(lua_isnoneornil(L, 2) ? handle(L, 1) : reinterpret_cast<TqTransitQueue *>(&stranger));
  return ret(L, capture.text().c_str());
}

// A table of what the queries say of argument 1.
int probe(lua_State *L) {
  lua_pushfstring(L, "%d %s any%d indexable%d heavy%d string%d number%d to:%d%d%s,%f,%d len%d",
                  TqLua_type(L, 1), TqLua_typename(L, 1), TqLua_isAny(L, 1), TqLua_isIndexable(L, 1),
                  TqLua_isHeavyUserdata(L, 1), TqLua_isStringNoConvert(L, 1),
                  TqLua_isNumberNoConvert(L, 1), TqLua_toHeavyUserdata(L, 1) != nullptr,
                  TqLua_toLightUserdata(L, 1) != nullptr, TqLua_toStringNoConvert(L, 1) ? "s" : "-",
                  TqLua_toNumberNoConvert(L, 1), static_cast<int>(TqLua_toIntegerNoConvert(L, 1)),
                  static_cast<int>(TqLua_strlen(L, 1)));
  return 1;
}

// field(member, t, key, default): a table field accessor on t (argument 2).
int field(lua_State *L) {
  const std::string m = luaL_checkstring(L, 1);
  const char *k = lua_tostring(L, 3);
  const int32_t i = integer(L, 3);
  const char *text = "untouched";
  lua_Number number = -1;
  int boolean = -1;
  if (m == "hasString") return flag(L, TqLuaTable_hasString(L, 2, k, &text)), ret(L, text), 2;
  if (m == "hasNumberAtIndex") return flag(L, TqLuaTable_hasNumberAtIndex(L, 2, i, &number)), ret(L, number), 2;
  if (m == "hasBoolean") return flag(L, TqLuaTable_hasBoolean(L, 2, k, &boolean)), ret(L, boolean), 2;
  if (m == "hasKey") return flag(L, TqLuaTable_hasKey(L, 2, k));
  if (m == "optString") return ret(L, TqLuaTable_optString(L, 2, k, lua_tostring(L, 4)));
  if (m == "optNumberAtIndex") return ret(L, TqLuaTable_optNumberAtIndex(L, 2, i, lua_tonumber(L, 4)));
  if (m == "optBoolean") return ret(L, TqLuaTable_optBoolean(L, 2, k, integer(L, 4)));
  if (m == "isString") return flag(L, TqLuaTable_isString(L, 2, k));
  if (m == "isNumberAtIndex") return flag(L, TqLuaTable_isNumberAtIndex(L, 2, i));
  if (m == "isBoolean") return flag(L, TqLuaTable_isBoolean(L, 2, k));
  if (m == "checkString") return ret(L, TqLuaTable_checkString(L, 2, k));
  if (m == "checkNumberAtIndex") return ret(L, TqLuaTable_checkNumberAtIndex(L, 2, i));
  if (m == "checkBoolean") return ret(L, TqLuaTable_checkBoolean(L, 2, k));
  if (m == "toString") return ret(L, TqLuaTable_toString(L, 2, k));
  if (m == "toNumberAtIndex") return ret(L, TqLuaTable_toNumberAtIndex(L, 2, i));
  if (m == "toBoolean") return ret(L, TqLuaTable_toBoolean(L, 2, k));
  if (m == "setString") return TqLuaTable_setString(L, 2, k, lua_tostring(L, 4)), 0;
  if (m == "setNumberAtIndex") return TqLuaTable_setNumberAtIndex(L, 2, i, lua_tonumber(L, 4)), 0;
  if (m == "setBoolean") return TqLuaTable_setBoolean(L, 2, k, integer(L, 4)), 0;
  if (m == "setFrom") return TqLuaTable_setFrom(L, 2, k, 4), 0;
  if (m == "ref") return lua_settop(L, 4), ret(L, TqLuaTable_ref(L, 2));
  if (m == "unref") return TqLuaTable_unref(L, 2, integer(L, 3)), 0;
  return luaL_error(L, "no member %s", m.c_str());
}

// cached(kind, name, key): a registry cache lookup; returns its answer and the table.
int cached(lua_State *L) {
  const std::string kind = luaL_checkstring(L, 1);
  const char *name = lua_tostring(L, 2);
  const int top = lua_gettop(L);
  int result = 0;
  if (kind == "opt") result = TqLua_pushOptCachedTable(L, name, key(L, 3));
  if (kind == "plain") result = TqLua_pushCachedTable(L, name, key(L, 3));
  if (kind == "v") result = TqLua_pushCachedWeakValuedTable(L, name, key(L, 3));
  if (kind == "k") result = TqLua_pushCachedWeakKeyedTable(L, name, key(L, 3));
  if (kind == "kv") result = TqLua_pushCachedFullyWeakTable(L, name, key(L, 3));
  ret(L, result);
  lua_insert(L, top + 1);
  return from(L, top + 1);
}

#define BIND(name, ...) {#name, []([[maybe_unused]] lua_State *L) -> int { __VA_ARGS__ }}

const luaL_Reg kBindings[] = {
    // Value checks and conversions.
    BIND(checkNumber, return ret(L, TqLua_checkNumber(L, 1));),
    BIND(checkInteger, return ret(L, static_cast<lua_Number>(TqLua_checkInteger(L, 1)));),
    BIND(checkString, return ret(L, TqLua_checkString(L, 1));),
    BIND(checkBoolean, return ret(L, TqLua_checkBoolean(L, 1));),
    BIND(checkUserdata, return flag(L, TqLua_checkUserdata(L, 1) != nullptr);),
    BIND(checkHeavy, return flag(L, TqLua_checkHeavyUserdata(L, 1) != nullptr);),
    BIND(checkLight, return flag(L, TqLua_checkLightUserdata(L, 1) != nullptr);),
    BIND(checkAny, return TqLua_checkAny(L, 1), 0;),
    BIND(checkType, return TqLua_checkType(L, 1, integer(L, 2), lua_tostring(L, 3)), 0;),
    BIND(optInteger5, return ret(L, static_cast<lua_Number>(TqLua_optInteger(L, 5, 7)));),
    BIND(optString, return ret(L, TqLua_optString(L, 1, "default"));),
    BIND(optBoolean, return ret(L, TqLua_optBoolean(L, 1, 5));),
    BIND(optLight, return flag(L, TqLua_optLightUserdata(L, 1, L) == L);),
    BIND(optOthers, const lua_Number n = TqLua_optNumber(L, 1, 0.5); const bool u = TqLua_optUserdata(L, 2, L) == L;
         const bool h = TqLua_optHeavyUserdata(L, 3, L) == L; return ret(L, n), flag(L, u), flag(L, h), 3;),
    BIND(warnParameterCount, const int n = integer(L, 1); lua_remove(L, 1);
         return TqLua_warnParameterCount(L, n), ret(L, lua_gettop(L));),
    BIND(normalize, return ret(L, TqLua_normalize(L, integer(L, 1)));),
    BIND(typeOfZero, return ret(L, TqLua_type(L, 0));),
    BIND(equals, return flag(L, TqLua_equalsString(L, 1, lua_isnil(L, 2) ? nullptr : lua_tostring(L, 2)));),
    BIND(popNil, const bool popped = TqLua_popNil(L); const int top = lua_gettop(L);
         return flag(L, popped), ret(L, top), 2;),
    BIND(errorText, TqLua_errorText(L, "%s went wrong %d times", "it", 3);),
    BIND(errorTextVa, raiseFormatted(L, "%d%% of %s", 50, "it");),
    {"probe", probe},
    BIND(light, return lua_pushlightuserdata(L, lua_toboolean(L, 1) ? L : nullptr), 1;),
    BIND(heavy, return lua_newuserdata(L, static_cast<size_t>(luaL_optinteger(L, 1, 16))), 1;),
    // Tagged heavy userdata.
    BIND(tagged, TqLuaInternal_makeTaggedHeavyUserdata(L, static_cast<size_t>(luaL_optinteger(L, 2, 4)),
                                                       static_cast<unsigned char>(integer(L, 1)));
         return 1;),
    BIND(tagOf, return ret(L, TqLuaInternal_getuserdatatag(L, 1));),
    BIND(setTag, return ret(L, TqLuaInternal_setuserdatatag(L, 1, static_cast<unsigned char>(integer(L, 2))));),
    BIND(isTagged, return flag(L, TqLuaInternal_isTaggedHeavyUserdata(L, 1, static_cast<unsigned char>(integer(L, 2))));),
    BIND(toTagged, return flag(L, TqLuaInternal_toTaggedHeavyUserdata(L, 1, static_cast<unsigned char>(integer(L, 2))));),
    BIND(checkTagged, TqLuaInternal_checkTaggedHeavyUserdata(L, 1, static_cast<unsigned char>(integer(L, 2))); return 0;),
    BIND(invalidateTag, return TqLuaInternal_setTaggedHeavyUserdataToInvalid(L, 1), 0;),
    {"canYield", TqLuaInternal_canYield_L},
    // Named integers.
    BIND(named, return ret(L, TqLua_checkNamedInteger(L, 1, record(L, 2)));),
    BIND(optNamed, return ret(L, TqLua_optNamedInteger(L, 1, record(L, 2), -7));),
    BIND(nameOf, return TqLua_pushNamedInteger(L, integer(L, 1), record(L, 2));),
    BIND(namedPastTop, return ret(L, TqLua_checkNamedInteger(L, lua_gettop(L) + 1, &kLetters));),
    BIND(namedTable, return TqLua_pushCachedNamedIntegersTable(L, record(L, 1));),
    BIND(byName, int32_t value = -1; const int found = TqNamedIntegers_getByName(record(L, 2), lua_tostring(L, 1), &value);
         return ret(L, found), ret(L, value), 2;),
    BIND(namedNoThrow, lua_settop(L, 2); StderrCapture capture;
         const int32_t value = TqLua_optNamedInteger_noThrow(L, 1, record(L, 2), -7); const int top = lua_gettop(L);
         return ret(L, value), ret(L, capture.text().c_str()), ret(L, top), 3;),
    // Caches, methods, tables.
    {"cached", cached},
    BIND(weak, return TqLua_makeWeakTable(L, lua_toboolean(L, 1), lua_toboolean(L, 2));),
    BIND(literal, static const char first[] = "hello", second[] = "hello";
         return TqLua_pushCachedLiteral_imp(L, lua_isnil(L, 1) ? nullptr : integer(L, 1) ? second : first, integer(L, 2));),
    BIND(literalMacro, return TqLua_pushCachedLiteral(L, "wor\0ld");),
    BIND(invalidate, return TqLua_invalidateProxyUserdata(L, 1), 0;),
    // getMethod(object, name) -> found, and what is left above the object
    BIND(getMethod, const int found = TqLua_getMethod(L, 1); const int top = lua_gettop(L);
         return ret(L, found), lua_insert(L, 2), top;),
    BIND(getMethodByName, const int found = TqLua_getMethodByName(L, 1, lua_tostring(L, 2));
         ret(L, found); lua_insert(L, 3); return from(L, 3);),
    BIND(getTable, return TqLua_getTable(L, 1), 1;),
    BIND(deref, return TqLua_deref(L), 1;),
    BIND(rawDeref, return TqLua_rawDeref(L), 1;),
    BIND(rawDerefIndexed, return lua_settop(L, 1), TqLua_rawDerefIndexed(L, 2), 1;),
    BIND(rawGetUD, return TqLua_rawGetUD(L, 1, L), 1;),
    BIND(addFunctions, const luaL_Reg *list = lua_isnil(L, 2) ? nullptr : kFunctionLists[integer(L, 2)];
         return TqLua_addFunctionsToTable(L, 1, list), 0;),
    {"chain", TqLua_chain},
    BIND(shallowCopy, const int pushed = TqLua_shallowCopy(L, 1); ret(L, pushed);
         if (pushed) lua_insert(L, -2); return 1 + pushed;),
    {"field", field},
    // Chunks and calls.
    BIND(send, return TqLua_send(L, "greet", lua_gettop(L) - 1, LUA_MULTRET);),
    BIND(sendForOne, return TqLua_send(L, "greet", lua_gettop(L) - 1, 1);),
    BIND(stackSend, return TqLua_stackSend(L, lua_gettop(L) - 2, LUA_MULTRET);),
    BIND(sendNegative, return TqLua_send(L, "greet", -1, 0);),
    BIND(sendMissing, return lua_settop(L, 1), TqLua_send(L, "greet", 1, 0);),
    BIND(closure, const int n = integer(L, 1); const bool withFunction = lua_toboolean(L, 2);
         lua_remove(L, 1); lua_remove(L, 1); return TqLua_pushCClosure(L, withFunction ? upvalues : nullptr, n);),
    BIND(functionFor, return TqLua_pushCFunctionWithUDRef(L, integer(L, 1) == 1 ? answer : upvalues, key(L, 2));),
    BIND(nullFunction, return TqLua_pushCFunctionWithUDRef(L, nullptr, kKeys);),
    {"withPool", TqLua_callWithAutoReleasePool},
    {"loadAndCapture", TqLua_loadAndCaptureChunk_L},
    BIND(codeChunk, return TqLua_getFunctionCodeChunk(L, 1);),
    BIND(chunkName, return TqLua_getFunctionChunkName(L, 1);),
    // loadChunk(source, name, environment) -> status, function or message, stack growth
    BIND(loadChunk, lua_settop(L, 3); size_t size = 0; const char *source = lua_tolstring(L, 1, &size);
         const int status = TqLua_loadChunkFromBuffer(L, source, size, lua_tostring(L, 2));
         return ret(L, status), lua_insert(L, 3), ret(L, lua_gettop(L) - 4), 3;),
    // callChunk(source, name) -> result count, results...
    BIND(callChunk, lua_settop(L, 2); lua_pushnil(L);
         const int count = TqLua_callChunkFromString(L, lua_tostring(L, 1), lua_tostring(L, 2));
         return ret(L, count), lua_insert(L, 3), count + 1;),
    BIND(pcallChunk, lua_settop(L, 2); lua_pushnil(L);
         const int status = TqLua_pcallChunkFromString(L, lua_tostring(L, 1), lua_tostring(L, 2));
         return ret(L, status), lua_insert(L, 3), from(L, 3);),
    BIND(loadOnEmptyStack, return lua_settop(L, 0), TqLua_loadChunkFromString(L, "return 1", "empty"), 0;),
    // capture(capturing, hook): sets the code-capture settings (hook "record", "throw", "raise" or
    // none); returns the texts recorded since the last call, each with "|" and its chunk name.
    BIND(capture, TqLua_setCodeCapturing(&sCapture, lua_toboolean(L, 1));
         const std::string hook = luaL_optstring(L, 2, "");
         TqLua_setCodeCaptureHook(&sCapture, hook == "record" ? recordCapture : hook == "throw" ? throwingCapture
                                             : hook == "raise" ? raisingCapture : nullptr);
         return lua_pushlstring(L, sCaptured.data(), sCaptured.size()), sCaptured.clear(), 1;),
    // Printing, logging, tracebacks.
    {"print", TqLua_alwaysPrint_L}, {"printStdout", TqLua_alwaysStdout_L}, {"debugPrint", TqLua_debugPrint_L},
    BIND(logged, return ret(L, sLogged.c_str()), sLogged.clear(), 1;),
    BIND(printf, TqLua_printf(L, "%s=%d %f %%", "x", 5, 1.5); TqLua_dprintf(L, "never %d", 1);
         return ret(L, lua_gettop(L));),
    BIND(logString, return TqLua_alwaysLogString(lua_tostring(L, 1)), TqLua_debugLogString("never"), 0;),
    BIND(traceback, return TqLua_pushTraceback(L, lua_tostring(L, 1), 0, integer(L, 2));),
    BIND(dumpTraceback, TqLua_dumpTraceback(L, lua_tostring(L, 1), 0);
         return TqLua_dumpTracebackVerbose(L, lua_tostring(L, 2), 0), 0;),
    BIND(dumpSkipping, return TqLua_dumpTracebackSkippingLevels(L, lua_tostring(L, 1), integer(L, 2)), 0;),
    BIND(dumpTrace, return dumpTrace(L), 0;),
    BIND(describe, return TqLua_shortStringDescription(L, L, 1), TqLua_stringDescription(L, L, 1), 2;),
    BIND(dumps, TqLua_dumpStack(L, "label"); TqLua_dumpStack(L, nullptr); TqLua_dumpStackVerbose(L, "label");
         TqLua_dumpStackComment(L, "comment"); TqLua_dumpValue(L, -1, "value"); TqLua_dumpValue(L, 1, nullptr);
         dumpState(L); dumpValue(L, 1); return ret(L, lua_gettop(L));),
    // Exceptions.
    BIND(setFieldError, TqThrowSetFieldError(L, lua_tostring(L, 1), lua_tostring(L, 2));),
    BIND(getFieldError, TqThrowGetFieldError(L, lua_tostring(L, 1), lua_tostring(L, 2));),
    BIND(missingType, TqThrowMissingType(L, lua_tostring(L, 1));),
    BIND(unsupported, TqThrowUnsupportedMethod(L, lua_tostring(L, 1));),
    BIND(programError, TqLua_throwProgramError(L, luaL_checkstring(L, 1));),
    BIND(throwStd, throw std::runtime_error(luaL_checkstring(L, 1));),
    BIND(throwNative, TqThrowProgramError(luaL_checkstring(L, 1));),
    BIND(throwOther, throw 42;),
    BIND(throwNullWhat, struct NullWhat : std::exception {
           const char *what() const noexcept override { return nullptr; }
         }; throw NullWhat();),
    // thrown(): the descriptions the throw hook was told since the last call, one a line.
    BIND(thrown, TqExceptions_setThrowHook([](lua_State *, const char *text) { sThrown.append(text).append("\n"); });
         return ret(L, sThrown.c_str()), sThrown.clear(), 1;),
    // caught(): the foreign exceptions the catch hook saw since the last call, one a line.
    BIND(caught, TqExceptions_setCatchExceptionHook([](lua_State *, const void *e) {
           sThrown.append(e ? static_cast<const std::exception *>(e)->what() : "NULL").append("\n"); });
         return ret(L, sThrown.c_str()), sThrown.clear(), 1;),
    // hooks(on, refusedPrefix, refuseLibraries): sets the host hooks; returns what they were asked.
    BIND(hooks, const bool on = lua_toboolean(L, 1); sRefusedPrefix = luaL_optstring(L, 2, "");
         sRefuseLibraries = lua_toboolean(L, 3); KrHooks_setFOpenHook(on ? openFile : nullptr);
         KrHooks_setLoadLibraryHook(on ? loadLibrary : nullptr);
         return ret(L, sOpened.c_str()), sOpened.clear(), 1;),
    // Halts and introspection.
    BIND(sethalt, return ret(L, lua_sethalt(L, integer(L, 2), haltHook(L, 3)));),
    BIND(clearhalt, return ret(L, lua_clearhalt(L, integer(L, 2)));),
    BIND(gethalts, return lua_gethalts(L), 1;),
    BIND(hits, return ret(L, sHaltHits), ret(L, sLastHaltPc), 2;),
    // sethook(kind): the thread's hook ("count" or "trigger" with mask, or none); hook(): the
    // hook and mask now and as the inspecting halt saw them; triggers(): the trigger events seen.
    BIND(sethook, const std::string kind = luaL_optstring(L, 1, "");
         return lua_sethook(L, kind == "count" ? countHook : kind.empty() ? nullptr : triggerHook,
                            kind == "count" ? LUA_MASKCOUNT : kind == "line" ? LUA_MASKLINE : LUA_MASKTRIGGER, 1000000), 0;),
    BIND(hook, return ret(L, hookName(L).c_str()), ret(L, sSeenHook.c_str()), 2;),
    BIND(triggers, ret(L, sTriggers.c_str()); ret(L, sOtherEvents); return sTriggers.clear(), sOtherEvents = 0, 2;),
    BIND(triggerThrice, return lua_trigger(L), lua_trigger(L), lua_trigger(L), 0;),
    // protoHook(on) sets the prototype hook with a fresh record; protos() reads the record.
    BIND(protoHook, return sProtos = ProtoRecord(), lua_setprotohook(L, lua_toboolean(L, 1) ? protoHook : nullptr), 0;),
    {"protos", protos},
    BIND(setprotohalt, return ret(L, lua_setprotohalt(L, lua_touserdata(L, 1), integer(L, 2), recordHalt));),
    BIND(clearprotohalt, return ret(L, lua_clearprotohalt(L, lua_touserdata(L, 1), integer(L, 2)));),
    BIND(protoSource, return ret(L, lua_getprotosource(L, lua_touserdata(L, 1)));),
    // closedState(code): loads code in a new state with the prototype hook and closes it.
    BIND(closedState, lua_State *S = luaL_newstate(); lua_setprotohook(S, protoHook); sProtos = ProtoRecord();
         luaL_loadstring(S, luaL_checkstring(L, 1)); sProtos.closing = true; lua_close(S); return protos(L);),
    BIND(describeFunction, return lua_settop(L, 1), lua_describefunction(L);),
    BIND(disassemble, return lua_disassemble(L, static_cast<unsigned int>(luaL_checknumber(L, 1)));),
    // Packed values, cargo, copies between states.
    {"pack", pack}, {"cargo", cargo},
    BIND(unpack, std::vector<uint64_t> bytes = packedBytes(L); StderrCapture capture;
         const size_t size = TqTransitValue_unpack(L, bytes.data());
         return ret(L, size), 2;),
    BIND(dumpPacked, std::vector<uint64_t> bytes = packedBytes(L); StderrCapture capture;
         const size_t size = TqTransitValue_dump(bytes.data()); return ret(L, capture.text().c_str()), ret(L, size), 2;),
    BIND(copy, return TqTransitQueue_copyFromLuaStateToLuaState(L, 1, L, lua_toboolean(L, 2)), 1;),
    BIND(message, TqTransitMessage *m = TqTransitMessage_fromLuaValue(L, 1, 0); if (!m) return 0;
         const bool unlinked = m->next == nullptr; TqTransitValue_unpack(L, TqTransitMessage_packedValue(m));
         return ret(L, m->size), TqTransitMessage_free(m), flag(L, unlinked), 3;),
    BIND(plain, const char *bytes = lua_tostring(L, 1);
         return std::memcpy(TqDirectObject_checkPushAllocToLua(L, &kPlain), bytes, 16), 1;),
    BIND(plainBytes, const char *bytes = static_cast<const char *>(TqDirectObject_fromLua(L, 1, &kPlain));
         return bytes ? lua_pushlstring(L, bytes, 16), 1 : 0;),
    // Native queue handles.
    BIND(newHandle, return lua_pushlightuserdata(L, TqTransitQueue_createQueue(0)), 1;),
    {"release", release},
    BIND(releaseSilent, StderrCapture capture; TqTransitQueue_releaseSilent(handle(L, 1));
         return ret(L, capture.text().c_str());),
    BIND(retain, return lua_pushlightuserdata(L, TqTransitQueue_checkRetainFromLua(L, 1)), 1;),
    BIND(pushQueue, return TqTransitQueue_pushQueue_L(L, handle(L, 1));),
    BIND(nullClass, return TqDirectObject_checkPushClassToLua(L, nullptr), 1;),
    BIND(optQueue, return flag(L, TqDirectObject_optFromLua(L, 1, &TqTransitQueue_Class, L) == L);),
    BIND(handleOf, return lua_pushlightuserdata(L, TqDirectObject_checkFromLua(L, 1, &TqTransitQueue_Class)), 1;),
    BIND(handleView, const HandleView *view = reinterpret_cast<HandleView *>(handle(L, 1));
         return ret(L, view->mark), ret(L, static_cast<lua_Number>(reinterpret_cast<uintptr_t>(view->core))), 2;),
    BIND(isEmpty, return ret(L, TqTransitQueue_isEmpty(handle(L, 1)));),
    BIND(enqueueTo, return ret(L, TqTransitQueue_enqueueToQueue(L, handle(L, 1), 2));),
    BIND(dequeueFrom, return TqTransitQueue_dequeueToLuaState(L, handle(L, 1), 0, 0) ? 1 : 0;),
    // sendCargo(handle, text or queue handle): a cargo of one string, or of a queue moved.
    BIND(sendCargo, TqTransitCargo *cargo = TqTransitQueue_newCargo();
         if (lua_isstring(L, 2)) TqTransitCargo_pushLString(cargo, lua_tostring(L, 2), lua_objlen(L, 2));
         else TqTransitCargo_pushTransitQueue(cargo, handle(L, 2), 1);
         return TqTransitQueue_enqueueAndReleaseCargo(handle(L, 1), cargo), 0;),
    BIND(dequeueString, TqTransitQueue *queue = handle(L, 1);
         TqTransitQueueString *string = TqTransitQueue_dequeueCopyOfString(queue, lua_toboolean(L, 2), lua_tonumber(L, 3));
         if (!string) return 0; size_t length = 0; const char *bytes = TqTransitQueue_stringToCString(string, &length);
         return lua_pushlstring(L, bytes, length + 1), TqTransitQueue_releaseString(string), 1;),
    BIND(collectQueue, const TqDirectObjectMethod *gc = TqTransitQueue_Class.methods;
         while (std::strcmp(gc->name, "__gc")) ++gc;
         StderrCapture capture; gc->method(TqDirectObject_checkFromLua(L, 1, &TqTransitQueue_Class), L);
         return ret(L, capture.text().c_str());),
    // Transit queues.
    {"newQueue", TqTransitQueue_new_L},
    BIND(mark, const void *handle = TqDirectObject_checkFromLua(L, 1, &TqTransitQueue_Class);
         return ret(L, *static_cast<const uint32_t *>(handle));),
    {nullptr, nullptr}};

}  // namespace

namespace tqtest {

void openBindings(lua_State *L, TqLuaUniverse *universe) {
  sHaltHits = 0;
  sLogged.clear();
  sThrown.clear();
  sCaptured.clear();
  sPreviousOutput = TqLua_setLogOutput([](const char *piece) { sLogged += piece; });
  TqLuaUniverse_setCodeCapture(universe, &sCapture);
  luaL_register(L, "T", kBindings);
  lua_pushstring(L, TQ_NATIVE_MODULE);
  lua_setfield(L, -2, "nativeModule");
  lua_pop(L, 1);
  openClasses(L);
}

void closeBindings() {
  TqLua_setLogOutput(sPreviousOutput);
  TqExceptions_setThrowHook(nullptr);
  TqExceptions_setCatchExceptionHook(nullptr);
  KrHooks_setFOpenHook(nullptr);
  KrHooks_setLoadLibraryHook(nullptr);
  TqLua_setCodeCapturing(&sCapture, 0);
  TqLua_setCodeCaptureHook(&sCapture, nullptr);
}

}  // namespace tqtest
