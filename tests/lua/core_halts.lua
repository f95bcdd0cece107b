-- Halts: planting, clearing and running them, in plain calls and in coroutines.
local function code(f) return T.describeFunction(f).code end
local function opcode(f, pc) return T.disassemble(code(f)[pc]).opcode end
-- Plants a halt on every instruction of f; returns how many halts f then has.
local function haltAll(f, hook)
  for pc = 1, #code(f) do assert(T.sethalt(f, pc, hook) > 0, pc) end
  return #T.gethalts(f)
end

-- Code touching every kind of instruction the compiler emits (pseudo-instructions included:
-- test jumps, CLOSURE's upvalue words).
local log, up = {}, 0
local function work(n, ...)
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
  local x, y, packed = t.x or "none", t.missing and 1 or 2, {select("#", ...), ...}
  log[#log + 1] = "a" .. "b" .. s .. #t
  while s > 100 do s = s - 100 end
  repeat s = s + 1 until s > 0
  local z = nil
  t.x, t[2] = nil, -s
  return obj:get(1), r1, r2, -s, s % 7, 2 ^ 3, s / 4, x, y, #packed, up, t[2], z, not z
end
local function runWork()
  log, up = {}, 0
  local r = {work(10, 4, 5, 6)}
  for i = 1, 14 do r[i] = tostring(r[i]) end
  return table.concat(r, ",") .. "|" .. table.concat(log, ",")
end
local plain, dumped = runWork(), string.dump(work)
assert(haltAll(work) > 20 and haltAll(runWork) > 5)
same(runWork(), plain, "halted run")
same(runWork(), plain, "halts stay planted")
assert(T.hits() > 100)
same(string.dump(work), dumped, "a dump holds the code as compiled")

-- Loading refuses HALT in binary code (the first instruction follows the header, the source
-- name, two line numbers, four bytes and the instruction count).
local d = string.dump(function() return 1 end)
local at = 12 + 8 + d:byte(13) + 8 + 4 + 4
same(select(2, loadstring(d:sub(1, at) .. string.char(38, 0, 0, 0) .. d:sub(at + 5))),
  "binary string: bad code in precompiled chunk", "HALT in a binary chunk")

-- Hits report the halted instruction, which is one of the planted ones.
local planted = {}
for _, pc in ipairs(T.gethalts(work)) do planted[pc - 1] = true end
local before = T.hits()
work(2)
local count, last = T.hits()
assert(count > before and planted[last], "hit reports a planted instruction")

-- Errors and tracebacks still name what the code uses.
local function callee() return debug.traceback("tb") end
local function caller() local r = callee(); return r end
local function broken() local x = 1; undefinedfn(x) end
local function indexing() local t = {}; return t.a.b end
haltAll(caller) haltAll(broken) haltAll(indexing)
assert(caller():find("in function 'callee'"))
assert(select(2, pcall(broken)):find("attempt to call global 'undefinedfn' %(a nil value%)"))
assert(select(2, pcall(indexing)):find("attempt to index field 'a' %(a nil value%)"))

-- Halts planted in a suspended coroutine change nothing.
local function gen(n)
  local acc = 0
  for i = 1, n do acc = acc + i + coroutine.yield(acc) end
  return "done", acc
end
local plainRun, haltedRun = coroutine.wrap(gen), coroutine.wrap(gen)
assert(plainRun(6) == haltedRun(6) and plainRun(1) == haltedRun(1))
before = T.hits()
haltAll(gen)
for step = 2, 5 do assert(plainRun(step) == haltedRun(step)) end
assert(select(2, plainRun(0)) == select(2, haltedRun(0)) and T.hits() > before)

-- A hook that yields runs the halt again on resume.
local function f(a)
  local b = a + 1
  return b * 2
end
same(T.sethalt(f, 2, "yield"), 2, "yielding halt")
local co = coroutine.create(f)
before = T.hits()
local ok, r = coroutine.resume(co, 1)
assert(ok and r == nil and coroutine.status(co) == "suspended" and T.hits() == before + 1)
ok, r = coroutine.resume(co)
assert(ok and r == 4 and coroutine.status(co) == "dead" and T.hits() == before + 2 and select(2, T.hits()) == 1)

-- Placing moves off pseudo-instructions: the jump after a test, CLOSURE's upvalue words and
-- the count word after SETLIST with C = 0.
local function cmp(x, y) if x == y then return 1 end return 2 end
same(opcode(cmp, 1), "EQ", "cmp starts with EQ")
same(T.sethalt(cmp, 2), 1, "halt on the jump after EQ")
assert(#T.gethalts(cmp) == 1 and T.gethalts(cmp)[1] == 1)
before = T.hits()
assert(cmp(1, 1) == 1 and cmp(1, 2) == 2 and T.hits() == before + 2)
local function mk(a) return function() return a + up end end
assert(opcode(mk, 1) == "CLOSURE" and opcode(mk, 2) == "MOVE" and opcode(mk, 3) == "GETUPVAL")
assert(T.sethalt(mk, 3) == 1 and T.sethalt(mk, 2) == 1 and #T.gethalts(mk) == 1 and mk(4)() == 4 + up)
local big = loadstring("return {" .. string.rep("7,", 25600) .. "}")
local countWord
for pc, word in ipairs(code(big)) do
  if not countWord and word % 64 == 34 and math.floor(word / 16384) % 512 == 0 then countWord = pc + 1 end
end
same(T.sethalt(big, countWord), countWord - 1, "halt on the count word")
same(T.sethalt(big, countWord + 1), countWord + 1, "halt after the count word")
same(#big(), 25600, "big table")

-- Refusals, and setting twice keeps one record with the new hook.
assert(T.sethalt(cmp, 0) == 0 and T.sethalt(cmp, #code(cmp) + 1) == 0)
assert(T.sethalt(print, 1) == 0 and T.clearhalt(print, 1) == 0 and T.gethalts(print) == nil)
assert(T.clearhalt(cmp, 3) == 0 and T.clearhalt(cmp, 1) == 1 and T.clearhalt(cmp, 1) == 0 and #T.gethalts(cmp) == 0)
local function once() return 1 end
assert(T.sethalt(once, 1, "silent") == 1 and T.sethalt(once, 1) == 1 and #T.gethalts(once) == 1)
before = T.hits()
once()
same(T.hits(), before + 1, "the new hook runs")

-- Clearing any one halt of many leaves the others firing, and the lists stay in step.
local function sum(n)
  local s = 0
  for i = 1, n do s = s + i end
  return s
end
local halts = haltAll(sum)
for k = 1, halts do
  local pc = T.gethalts(sum)[k]
  assert(T.clearhalt(sum, pc) == 1)
  before = T.hits()
  assert(sum(3) == 6 and T.hits() > before)
  local listed, described = T.gethalts(sum), T.describeFunction(sum).halts
  assert(#listed == halts - 1 and #described == halts - 1)
  for j = 1, #listed do
    assert(listed[j] ~= pc and described[j].index == listed[j])
    local halt = T.disassemble(code(sum)[listed[j]])
    assert(halt.opcode == "HALT" and halt.Bx == j - 1)
  end
  assert(opcode(sum, pc) ~= "HALT" and T.sethalt(sum, pc) == pc)
end
