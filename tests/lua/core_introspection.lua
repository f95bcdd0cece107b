-- Describing prototypes, decoding instructions, varargs of a call level, string.replace.
local up1 = 5
local function described(a, b, ...)
  local x = a + up1 + select("#", ...) + (b == true and 1 or 0)
  local function nested() return x end
  return "str", true, 1.5, nested
end
local d = T.describeFunction(described)
local line = debug.getinfo(described, "S").linedefined
assert(d.source == debug.getinfo(1, "S").source and d.numParams == 2 and d.is_vararg == 3)
assert(d.lineDefined == line and d.lastlineDefined == line + 4 and d.maxstacksize > 0)
assert(d.nups == 1 and #d.upvalues == 1 and d.upvalues[1] == "up1")
assert(#d.code > 5 and #d.lines == #d.code and d.lines[1] == line + 1 and d.scalars == d.constants)
local seen = {}
for _, k in pairs(d.constants) do seen[k] = true end
assert(seen.str and seen[true] and seen[1.5] and seen.select)
assert(d.locals[1].varname == "a" and d.locals[1].startpc == 0 and d.locals[1].endpc > 0 and #d.halts == 0)
local n = d.functions[1]
assert(#d.functions == 1 and n.source == "" and n.upvalues[1] == "x" and n.lineDefined == line + 2)
assert(#n.functions == 0 and n.pcbase < d.pcbase)
local original = d.code[2]
assert(T.sethalt(described, 2) == 2)
d = T.describeFunction(described)
assert(#d.halts == 1 and d.halts[1].index == 2 and d.halts[1].instruction == original)
assert(T.disassemble(d.code[2]).opcode == "HALT" and T.disassemble(d.code[2]).Bx == 0)
assert(select("#", T.describeFunction(print)) == 0 and select("#", T.describeFunction(42)) == 0)

-- Decoding by format.
local function word(op, a, b, c) return op + a * 64 + c * 16384 + b * 8388608 end
local function decoded(w)
  local t = T.disassemble(w)
  return ("%s A%s B%s C%s Bx%s sBx%s %s"):format(t.opcode, tostring(t.A), tostring(t.B), tostring(t.C),
    tostring(t.Bx), tostring(t.sBx), tostring(t.test))
end
same(decoded(word(0, 1, 2, 0)), "MOVE A1 B2 Cnil Bxnil sBxnil false", "MOVE")
same(decoded(word(23, 1, 256, 3)), "EQ A1 B256 C3 Bxnil sBxnil true", "EQ")
same(decoded(1 + 3 * 64 + 70000 * 16384), "LOADK A3 Bnil Cnil Bx70000 sBxnil false", "LOADK")
same(decoded(22 + (131071 - 3) * 16384), "JMP A0 Bnil Cnil Bxnil sBx-3 false", "JMP")
same(decoded(38 + 5 * 16384), "HALT A0 Bnil Cnil Bx5 sBxnil false", "HALT")
same(decoded(word(30, 0, 1, 0)), "RETURN A0 B1 Cnil Bxnil sBxnil false", "RETURN")
cases {{"disassemble(39)", "invalid opcode"}, {"disassemble(63 + 64)", "invalid opcode"}}

-- Varargs of a call level.
local function v(a, ...) return debug.getvarargs(1) end
local t = v(1, 2, nil, 4)
assert(t.n == 3 and t[1] == 2 and t[2] == nil and t[3] == 4 and v(1).n == 0 and v().n == 0)
local function fixed(a) return debug.getvarargs(1) end
local function none() return debug.getvarargs(1) end
assert(fixed(1, 2, 3) == nil and none(5, 6).n == 0 and #none(5, 6) == 0 and debug.getvarargs(0) == nil)
local co = coroutine.create(function(...) coroutine.yield() end)
coroutine.resume(co, 7, 8)
t = debug.getvarargs(co, 1)
assert(t.n == 2 and t[1] == 7 and t[2] == 8)

cases {
  {"debug.getvarargs(50)", "t:1: bad argument #1 to 'getvarargs' (level out of range)"},
  -- string.replace is plain and counts its replacements.
  {"return all(string.replace('a.b.c', '.', '%1'))", "a%1b%1c 2"},
  {"return all(('aaaa'):replace('aa', 'b'))", "bb 2"},
  {"return all(('x-x-x'):replace('x', 'yy', 2))", "yy-yy-x 2"},
  {"return all(('abc'):replace('z', 'y'))", "abc 0"}, {"return #(('a\\0b\\0'):replace('\\0', ''))", 2},
  {"return ('abc'):replace('', 'x')", "t:1: bad argument #1 to 'replace' (empty search string)"},
}
