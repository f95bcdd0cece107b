// Describing prototypes, decoding instructions, varargs of a call level, string.replace.
#include <string>

#include "core_fixture.h"

namespace {

using coretest::CoreTest;
using tqtest::eval;
using tqtest::run;

TEST_F(CoreTest, DescriptionListsThePrototype) {
  ASSERT_EQ(run(L, R"(
    local up1 = 5
    function described(a, b, ...)
      local x = a + up1 + select("#", ...) + (b == true and 1 or 0)
      local function nested() return x end
      return "str", true, 1.5, nested
    end
    local d = describe(described)
    assert(d.source == "=test" and d.numParams == 2 and d.is_vararg == 3)
    assert(d.lineDefined == 3 and d.lastlineDefined == 7 and d.maxstacksize > 0)
    assert(d.nups == 1 and #d.upvalues == 1 and d.upvalues[1] == "up1")
    assert(#d.code > 5 and #d.lines == #d.code and d.lines[1] == 4)
    assert(d.scalars == d.constants)
    local seen = {}
    for _, k in pairs(d.constants) do seen[k] = true end
    assert(seen.str and seen[true] and seen[1.5] and seen.select)
    assert(d.locals[1].varname == "a" and d.locals[1].startpc == 0 and d.locals[1].endpc > 0)
    assert(#d.halts == 0)
    local n = d.functions[1]
    assert(#d.functions == 1 and n.source == "" and n.upvalues[1] == "x" and n.lineDefined == 5)
    assert(#n.functions == 0 and n.pcbase < d.pcbase)

    local original = d.code[2]
    assert(sethalt(described, 2) == 2)
    d = describe(described)
    assert(#d.halts == 1 and d.halts[1].index == 2 and d.halts[1].instruction == original)
    assert(disassemble(d.code[2]).opcode == "HALT" and disassemble(d.code[2]).Bx == 0)

    assert(select("#", describe(print)) == 0 and select("#", describe(42)) == 0))"), "");
}

int describeUnderFullStack(lua_State *L) {
  // Room for the outer description but not for the nested one.
  const int filled = 7995 - lua_gettop(L);
  luaL_checkstack(L, filled, "test");
  for (int k = 0; k < filled; k++) lua_pushboolean(L, 1);
  lua_pushvalue(L, 1);
  return lua_describefunction(L);
}

// Raises the error value as it stands: the default handler's description of the error needs
// stack space of its own, which this test leaves too little of.
void plainErrorHandler(void *, lua_State *, int status) { throw TqLuaException("", status); }

TEST_F(CoreTest, DescribingNeedsStackForItsNesting) {
  TqLuaExceptionHandlers handlers = TqLuaUniverse_getExceptionHandlers(universe);
  handlers.errorHandler = plainErrorHandler;
  TqLuaUniverse_setExceptionHandlers(universe, &handlers);
  lua_register(L, "describeunderfullstack", describeUnderFullStack);
  EXPECT_EQ(eval(L, "select(2, pcall(describeunderfullstack, function() return function() end end))"),
            "stack overflow (out of stack space)");
}

TEST_F(CoreTest, DisassemblyDecodesByFormat) {
  ASSERT_EQ(run(L, R"(
    local function word(op, a, b, c) return op + a * 64 + c * 16384 + b * 8388608 end
    local move = disassemble(word(0, 1, 2, 0))  -- MOVE A B
    assert(move.opcode == "MOVE" and move.A == 1 and move.B == 2 and move.C == nil and move.test == false)
    local eq = disassemble(word(23, 1, 256, 3))  -- EQ A B C
    assert(eq.opcode == "EQ" and eq.test == true and eq.B == 256 and eq.C == 3)
    local loadk = disassemble(1 + 3 * 64 + 70000 * 16384)  -- LOADK A Bx
    assert(loadk.opcode == "LOADK" and loadk.A == 3 and loadk.Bx == 70000 and loadk.B == nil)
    local jmp = disassemble(22 + (131071 - 3) * 16384)  -- JMP sBx
    assert(jmp.opcode == "JMP" and jmp.sBx == -3 and jmp.Bx == nil)
    local halt = disassemble(38 + 5 * 16384)
    assert(halt.opcode == "HALT" and halt.Bx == 5 and halt.A == 0 and halt.test == false)
    local ret = disassemble(word(30, 0, 1, 0))  -- RETURN A B: C unused
    assert(ret.C == nil and ret.B == 1))"), "");
  EXPECT_EQ(eval(L, "select(2, pcall(disassemble, 39))"), "invalid opcode");
  EXPECT_EQ(eval(L, "select(2, pcall(disassemble, 63 + 64))"), "invalid opcode");
}

TEST_F(CoreTest, VarargsOfACallLevel) {
  ASSERT_EQ(run(L, R"(
    local function v(a, ...) return debug.getvarargs(1) end
    local t = v(1, 2, nil, 4)
    assert(t.n == 3 and t[1] == 2 and t[2] == nil and t[3] == 4)
    assert(v(1).n == 0 and v().n == 0)
    local function fixed(a) return debug.getvarargs(1) end
    assert(fixed(1, 2, 3) == nil)
    local function none() return debug.getvarargs(1) end
    local e = none(5, 6)
    assert(e.n == 0 and #e == 0)
    assert(debug.getvarargs(0) == nil)  -- getvarargs itself is not a Lua function
    local co = coroutine.create(function(...) coroutine.yield() end)
    coroutine.resume(co, 7, 8)
    local c = debug.getvarargs(co, 1)
    assert(c.n == 2 and c[1] == 7 and c[2] == 8))"), "");
  EXPECT_EQ(eval(L, "select(2, pcall(debug.getvarargs, 50))"),
            "bad argument #1 to '?' (level out of range)");
}

TEST_F(CoreTest, StringReplaceIsPlain) {
  EXPECT_EQ(eval(L, "table.concat({string.replace('a.b.c', '.', '%1')}, ' ')"), "a%1b%1c 2");
  EXPECT_EQ(eval(L, "table.concat({('aaaa'):replace('aa', 'b')}, ' ')"), "bb 2");
  EXPECT_EQ(eval(L, "table.concat({('x-x-x'):replace('x', 'yy', 2)}, ' ')"), "yy-yy-x 2");
  EXPECT_EQ(eval(L, "table.concat({('abc'):replace('z', 'y')}, ' ')"), "abc 0");
  EXPECT_EQ(eval(L, "#(('a\\0b\\0'):replace('\\0', ''))"), "2");
  EXPECT_EQ(eval(L, "select(2, pcall(string.replace, 'abc', '', 'x'))"),
            "bad argument #2 to '?' (empty search string)");
  EXPECT_EQ(eval(L, "select(2, pcall(function() return ('abc'):replace('', 'x') end))"),
            "test:1: bad argument #1 to 'replace' (empty search string)");
}

}  // namespace
