// Halts: planting, clearing and running them, in plain calls and in coroutines.
#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>

#include "core_fixture.h"

namespace {

using coretest::CoreTest;
using coretest::haltHits;
using tqtest::eval;
using tqtest::run;

// Code touching every kind of instruction the compiler emits (pseudo-instructions included:
// test jumps, CLOSURE's upvalue words), leaving its side effects in `log`.
const char *const kWorkload = R"(
local log, up = {}, 0
function work(n, ...)
  local t = {1, 2, 3, x = "y", [10] = false}
  local s = 0
  for i = 1, n do
    if i % 2 == 0 then s = s + i elseif i % 3 == 0 then s = s - i else s = s * 1 end
    if i < 5 and not (i == 3) then up = up + 1 end
    if i <= 7 or i > 100 then s = s + 0.5 end
  end
  for k, v in ipairs(t) do log[#log + 1] = k .. "=" .. tostring(v) end
  for _, v in ipairs({...}) do s = s + v end
  local function inner(a) up = up + a; return a * 2, s end
  local r1, r2 = inner(3)
  local obj = {v = 5}
  function obj:get(k) return self.v + k end
  local x = t.x or "none"
  local y = t.missing and 1 or 2
  local packed = {select("#", ...), ...}
  log[#log + 1] = "a" .. "b" .. s .. #t
  while s > 100 do s = s - 100 end
  repeat s = s + 1 until s > 0
  local z = nil
  t.x, t[2] = nil, -s
  return obj:get(1), r1, r2, -s, s % 7, 2 ^ 3, s / 4, x, y, #packed, up, t[2], z, not z
end
function runwork()
  log, up = {}, 0
  local r = {work(10, 4, 5, 6)}
  for i = 1, 14 do r[i] = tostring(r[i]) end
  return table.concat(r, ",") .. "|" .. table.concat(log, ",")
end
)";

TEST_F(CoreTest, HaltsOnEveryInstructionChangeNothing) {
  ASSERT_EQ(run(L, kWorkload), "");
  const std::string plain = eval(L, "runwork()");
  ASSERT_EQ(run(L, "dumped = string.dump(work)"), "");

  ASSERT_EQ(run(L, "assert(haltall(work) > 20); assert(haltall(runwork) > 5)"), "");
  EXPECT_EQ(eval(L, "runwork()"), plain);
  EXPECT_GT(haltHits().size(), 100u);
  EXPECT_EQ(eval(L, "runwork()"), plain);  // halts stay planted
  // A dump holds the code as compiled.
  EXPECT_EQ(run(L, "assert(string.dump(work) == dumped)"), "");
}

TEST_F(CoreTest, LoadingRefusesAHaltInBinaryCode) {
  // The first instruction of a dump follows the 12-byte header, the source name (an 8-byte
  // length and its bytes), two line numbers, four bytes and the instruction count.
  EXPECT_EQ(eval(L, R"(select(2, loadstring((function()
      local d = string.dump(function() return 1 end)
      local at = 12 + 8 + d:byte(13) + 8 + 4 + 4
      return d:sub(1, at) .. string.char(38, 0, 0, 0) .. d:sub(at + 5)
    end)())))"),
            "binary string: bad code in precompiled chunk");
}

TEST_F(CoreTest, HitsReportTheHaltedInstruction) {
  ASSERT_EQ(run(L, kWorkload), "");
  ASSERT_EQ(run(L, "haltall(work)"), "");
  lua_getglobal(L, "work");
  lua_gethalts(L);
  std::set<int> planted;
  for (size_t k = 1; k <= lua_objlen(L, -1); k++) {
    lua_rawgeti(L, -1, static_cast<int>(k));
    planted.insert(static_cast<int>(lua_tointeger(L, -1)) - 1);
    lua_pop(L, 1);
  }
  lua_settop(L, 0);
  ASSERT_EQ(run(L, "work(2)"), "");
  std::set<int> hit(haltHits().begin(), haltHits().end());
  EXPECT_FALSE(hit.empty());
  for (int pc : hit) EXPECT_EQ(planted.count(pc), 1u) << pc;
}

TEST_F(CoreTest, ErrorsAndTracebacksStillNameWhatTheCodeUses) {
  ASSERT_EQ(run(L, R"(
    function callee() return debug.traceback("tb") end
    function caller() local r = callee(); return r end
    function broken() local x = 1; undefinedfn(x) end
    function field() local t = {}; return t.a.b end)"), "");
  ASSERT_EQ(run(L, "haltall(caller); haltall(broken); haltall(field)"), "");
  EXPECT_NE(eval(L, "caller()").find("in function 'callee'"), std::string::npos);
  EXPECT_NE(eval(L, "select(2, pcall(broken))").find("attempt to call global 'undefinedfn' (a nil value)"),
            std::string::npos);
  EXPECT_NE(eval(L, "select(2, pcall(field))").find("attempt to index field 'a' (a nil value)"),
            std::string::npos);
}

TEST_F(CoreTest, HaltsPlantedInASuspendedCoroutineChangeNothing) {
  ASSERT_EQ(run(L, R"(
    function gen(n)
      local acc = 0
      for i = 1, n do
        acc = acc + i
        local got = coroutine.yield(acc)
        if got then acc = acc + got end
      end
      return "done", acc
    end
    function drive(plantAfter)
      local co, out = coroutine.create(gen), {}
      local ok, a, b = coroutine.resume(co, 6)
      local step = 1
      while coroutine.status(co) ~= "dead" do
        out[#out + 1] = tostring(a)
        if step == plantAfter then haltall(gen) end
        ok, a, b = coroutine.resume(co, step)
        step = step + 1
      end
      return table.concat(out, ",") .. "|" .. tostring(a) .. "," .. tostring(b)
    end)"), "");
  const std::string plain = eval(L, "drive(0)");
  EXPECT_EQ(eval(L, "drive(3)"), plain);
  EXPECT_FALSE(haltHits().empty());
}

void yieldingOnceHook(lua_State *L, lua_Debug *ar) {
  coretest::recordingHook(L, ar);
  if (haltHits().size() == 1) lua_yield(L, 0);
}

int setYieldingHalt(lua_State *L) {
  lua_pushinteger(L, lua_sethalt(L, luaL_checkint(L, 2), yieldingOnceHook));
  return 1;
}

TEST_F(CoreTest, AHookThatYieldsRunsTheHaltAgainOnResume) {
  lua_register(L, "setyieldinghalt", setYieldingHalt);
  ASSERT_EQ(run(L, R"(
    local function f(a)
      local b = a + 1
      return b * 2
    end
    local pc = setyieldinghalt(f, 2)
    assert(pc == 2)
    local co = coroutine.create(f)
    local ok, r = coroutine.resume(co, 1)
    assert(ok and r == nil and coroutine.status(co) == "suspended" and hits() == 1)
    ok, r = coroutine.resume(co)
    assert(ok and r == 4 and coroutine.status(co) == "dead", tostring(r))
    assert(hits() == 2))"), "");
  ASSERT_EQ(haltHits().size(), 2u);
  EXPECT_EQ(haltHits()[0], 1);
  EXPECT_EQ(haltHits()[1], 1);
}

TEST_F(CoreTest, PlacingMovesOffPseudoInstructions) {
  ASSERT_EQ(run(L, R"(
    local function cmp(a, b) if a == b then return 1 end return 2 end
    -- cmp: EQ, JMP, LOADK, RETURN, ...
    assert(disassemble(describe(cmp).code[1]).opcode == "EQ")
    assert(sethalt(cmp, 2) == 1)
    assert(#gethalts(cmp) == 1 and gethalts(cmp)[1] == 1)
    assert(cmp(1, 1) == 1 and cmp(1, 2) == 2 and hits() == 2)

    local up = 0
    local function mk(a) return function() return a + up end end
    local code = describe(mk).code
    assert(disassemble(code[1]).opcode == "CLOSURE")
    assert(disassemble(code[2]).opcode == "MOVE" and disassemble(code[3]).opcode == "GETUPVAL")
    assert(sethalt(mk, 3) == 1 and sethalt(mk, 2) == 1 and #gethalts(mk) == 1)
    assert(mk(4)() == 4)

    assert(sethalt(cmp, 0) == 0 and sethalt(cmp, #describe(cmp).code + 1) == 0)
    assert(sethalt(print, 1) == 0 and clearhalt(print, 1) == 0 and gethalts(print) == nil)
    assert(clearhalt(cmp, 3) == 0 and clearhalt(cmp, 1) == 1 and clearhalt(cmp, 1) == 0)
    assert(#gethalts(cmp) == 0))"), "");
}

TEST_F(CoreTest, SetListCountWordHaltsOnItsSetList) {
  ASSERT_EQ(run(L, "big = loadstring('return {' .. string.rep('7,', 25600) .. '}')"), "");
  lua_getglobal(L, "big");
  const int size = coretest::codeSize(L, 1);
  lua_pushvalue(L, 1);
  ASSERT_EQ(lua_describefunction(L), 1);
  lua_getfield(L, -1, "code");
  int countWord = 0;
  for (int pc = 1; pc < size && countWord == 0; pc++) {
    lua_rawgeti(L, -1, pc);
    const unsigned int word = static_cast<unsigned int>(lua_tonumber(L, -1));
    lua_pop(L, 1);
    if ((word & 63) == 34 && ((word >> 14) & 511) == 0) countWord = pc + 1;  // SETLIST, C = 0
  }
  lua_settop(L, 1);
  ASSERT_GT(countWord, 0);
  EXPECT_EQ(lua_sethalt(L, countWord, coretest::recordingHook), countWord - 1);
  EXPECT_EQ(lua_sethalt(L, countWord + 1, coretest::recordingHook), countWord + 1);
  lua_settop(L, 0);
  EXPECT_EQ(eval(L, "#big()"), "25600");
  EXPECT_EQ(haltHits().size(), 2u);
}

void otherHook(lua_State *, lua_Debug *) {}

TEST_F(CoreTest, SettingAHaltTwiceKeepsOneRecordWithTheNewHook) {
  ASSERT_EQ(run(L, "function f() return 1 end"), "");
  lua_getglobal(L, "f");
  EXPECT_EQ(lua_sethalt(L, 1, otherHook), 1);
  EXPECT_EQ(lua_sethalt(L, 1, coretest::recordingHook), 1);
  lua_gethalts(L);
  EXPECT_EQ(lua_objlen(L, -1), 1u);
  lua_settop(L, 0);
  ASSERT_EQ(run(L, "f()"), "");
  EXPECT_EQ(haltHits().size(), 1u);
}

// Clearing any one halt of many leaves the others firing, and the lists stay in step.
TEST_F(CoreTest, ClearingOneHaltKeepsTheOthers) {
  ASSERT_EQ(run(L, R"(
    function f(n)
      local s = 0
      for i = 1, n do s = s + i end
      return s
    end
    local count = haltall(f)
    for k = 1, count do
      local pc = gethalts(f)[k]
      assert(clearhalt(f, pc) == 1)
      local before = hits()
      assert(f(3) == 6)
      local listed, described = gethalts(f), describe(f).halts
      assert(#listed == count - 1 and #described == count - 1)
      for j = 1, #listed do
        assert(listed[j] ~= pc)
        assert(described[j].index == listed[j])
        assert(disassemble(describe(f).code[listed[j]]).opcode == "HALT")
        assert(disassemble(describe(f).code[listed[j]]).Bx == j - 1)
      end
      assert(disassemble(describe(f).code[pc]).opcode ~= "HALT")
      assert(hits() > before)
      assert(sethalt(f, pc) == pc)
    end)"), "");
}

// Plants a halt on the first instruction of a global function.
void haltFirstInstruction(lua_State *L, const char *function, lua_Hook hook) {
  lua_getglobal(L, function);
  ASSERT_EQ(lua_sethalt(L, 1, hook), 1);
  lua_settop(L, 0);
}

// Where hooks are concerned, a halt borrows the thread's hook slot for its call only.
lua_Hook sSeenHook = nullptr;
int sSeenMask = 0;

void countHook(lua_State *, lua_Debug *) {}

void inspectingHook(lua_State *L, lua_Debug *) {
  sSeenHook = lua_gethook(L);
  sSeenMask = lua_gethookmask(L);
}

void replacingHook(lua_State *L, lua_Debug *) { lua_sethook(L, otherHook, LUA_MASKCOUNT, 1000000); }

TEST_F(CoreTest, TheHaltsHookStandsInForTheThreadsHook) {
  ASSERT_EQ(run(L, "function f() return 1 end"), "");
  lua_sethook(L, countHook, LUA_MASKCOUNT, 1000000);
  haltFirstInstruction(L, "f", inspectingHook);
  ASSERT_EQ(run(L, "f()"), "");
  EXPECT_EQ(sSeenHook, inspectingHook);
  EXPECT_EQ(sSeenMask, LUA_MASKCOUNT | LUA_MASKHALT);
  EXPECT_EQ(lua_gethook(L), countHook);
  EXPECT_EQ(lua_gethookmask(L), LUA_MASKCOUNT);

  haltFirstInstruction(L, "f", replacingHook);
  ASSERT_EQ(run(L, "f()"), "");
  EXPECT_EQ(lua_gethook(L), otherHook);
  lua_sethook(L, nullptr, 0, 0);
}

void raisingHook(lua_State *L, lua_Debug *) { luaL_error(L, "raised in halt"); }

TEST_F(CoreTest, AHookThatRaisesLeavesTheThreadsHookInPlace) {
  ASSERT_EQ(run(L, "function f() return 1 end"), "");
  lua_sethook(L, countHook, LUA_MASKCOUNT, 1000000);
  haltFirstInstruction(L, "f", raisingHook);
  EXPECT_EQ(run(L, "f()"), "test:1: raised in halt");
  EXPECT_EQ(lua_gethook(L), countHook);
  EXPECT_EQ(lua_gethookmask(L), LUA_MASKCOUNT);
  lua_sethook(L, nullptr, 0, 0);
}

// A state whose allocator keeps spare capacity, so that growing the halt array one record at
// a time stays cheap, and that can refuse the next growth.
struct Arena {
  bool refuseNextGrowth = false;
};

void *arenaAlloc(void *ud, void *ptr, size_t osize, size_t nsize) {
  Arena *arena = static_cast<Arena *>(ud);
  size_t *block = ptr ? static_cast<size_t *>(ptr) - 2 : nullptr;
  if (nsize == 0) {
    std::free(block);
    return nullptr;
  }
  if (nsize > osize && arena->refuseNextGrowth) {
    arena->refuseNextGrowth = false;
    return nullptr;
  }
  if (block && block[0] >= nsize) return ptr;
  const size_t capacity = block ? std::max(nsize, 2 * block[0]) : nsize;
  block = static_cast<size_t *>(std::realloc(block, capacity + 2 * sizeof(size_t)));
  if (!block) return nullptr;
  block[0] = capacity;
  return block + 2;
}

TEST(HaltLimits, BxBoundsTheNumberOfHaltsOfAPrototype) {
  Arena arena;
  lua_State *L = lua_newstate(arenaAlloc, &arena);
  ASSERT_NE(L, nullptr);
  std::string source = "local a ";
  for (int k = 0; k < 262150; k++) source += "a=1 ";
  ASSERT_EQ(luaL_loadstring(L, source.c_str()), 0);
  const int max = 262144;  // Bx = 0 .. 262143
  int placed = 0;
  for (int pc = 1; pc <= max; pc++) placed += lua_sethalt(L, pc, otherHook) == pc;
  EXPECT_EQ(placed, max);
  EXPECT_EQ(lua_sethalt(L, max + 1, otherHook), 0);
  EXPECT_EQ(lua_clearhalt(L, 1), 1);
  EXPECT_EQ(lua_sethalt(L, max + 1, otherHook), max + 1);
  lua_close(L);
}

int setHaltOnArgument(lua_State *L) {
  static_cast<Arena *>(lua_touserdata(L, lua_upvalueindex(1)))->refuseNextGrowth = true;
  lua_pushinteger(L, lua_sethalt(L, 2, otherHook));
  return 1;
}

TEST(HaltLimits, ARefusedAllocationIsAMemoryErrorAndChangesNothing) {
  Arena arena;
  lua_State *L = lua_newstate(arenaAlloc, &arena);
  ASSERT_NE(L, nullptr);
  ASSERT_EQ(luaL_loadstring(L, "local a, b = ... return a + b"), 0);
  ASSERT_EQ(lua_sethalt(L, 1, otherHook), 1);
  lua_pushlightuserdata(L, &arena);
  lua_pushcclosure(L, setHaltOnArgument, 1);
  lua_pushvalue(L, 1);
  EXPECT_EQ(lua_pcall(L, 1, 1, 0), LUA_ERRMEM);
  EXPECT_STREQ(lua_tostring(L, -1), "not enough memory");
  lua_pop(L, 1);
  lua_gethalts(L);
  EXPECT_EQ(lua_objlen(L, -1), 1u);
  lua_pop(L, 1);
  lua_pushinteger(L, 2);
  lua_pushinteger(L, 3);
  ASSERT_EQ(lua_pcall(L, 2, 1, 0), 0);
  EXPECT_EQ(lua_tointeger(L, -1), 5);
  lua_close(L);
}

}  // namespace
