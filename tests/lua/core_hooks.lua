-- The hook slot a halt borrows, the trigger, and the prototype hook with halts by line.
local function f() return 1 end
local function halted(kind)  -- runs f with a halt of that kind on its first instruction
  T.sethook("count")
  assert(T.sethalt(f, 1, kind) == 1)
  return select(2, pcall(f))
end
local count = "count " .. 8
halted("inspect")
same(all(T.hook()), count .. " inspect " .. 8 + 32, "a halt's hook stands in for the thread's hook")
same(halted("raise"), "raised in halt", "raising hook")
same(T.hook(), count, "the thread's hook is back")
halted("replace")
same(T.hook(), "silent " .. 8, "a hook that installed another keeps it")
T.sethook()

-- Triggers before the next instruction make one event; only a hook asking for triggers gets
-- them, and setting a hook drops pending triggers.
T.sethook("trigger")
T.triggerThrice() debug.trigger()
local x = 1
same(all(T.triggers()), "3 1  0", "one event per instruction")
T.sethook("line")
T.triggerThrice()
T.sethook("trigger")
x = x + 1
T.sethook()
local triggers, others = T.triggers()
assert(triggers == "" and others > 0, "dropped triggers")

-- Every prototype is reported once created and once freed (by the collector, only dead ones).
local chunk = "local x = 1\n\nlocal function f(a)\n  return a + 1\nend\n" ..
  "local function g() return function() return x end end\nreturn f(x) + g()()"
collectgarbage()
T.protoHook(true)
for cycle = 1, 60 do
  assert(loadstring(chunk)() == 3)
  if cycle % 7 == 0 then collectgarbage() elseif cycle % 3 == 0 then collectgarbage("step", 1) end
end
collectgarbage()
same(all(select(2, T.protos())), "240 240 0 0", "created, freed, live, faults")
same(all(select(2, T.closedState(chunk))), "4 4 0 0", "closing a state frees its prototypes through the hook")
-- Halts by line stand on the line's first instruction.
T.protoHook(true)
local loaded = loadstring(chunk, "=chunk")
local created = T.protos()
local main, inner = created[1], created[2]
assert(T.protoSource(main) == "=chunk" and T.protoSource(inner) == "=chunk")
assert(T.setprotohalt(main, 2) == 0 and T.setprotohalt(inner, 1) == 0 and T.setprotohalt(inner, 4) == 1)
local line7 = T.setprotohalt(main, 7)
assert(line7 > 1 and T.setprotohalt(main, 1) == 1 and #T.gethalts(loaded) == 2)
local before = T.hits()
assert(loaded() == 3 and T.hits() == before + 3 and select(2, T.hits()) == 0)
assert(T.clearprotohalt(inner, 4) == 1 and T.clearprotohalt(inner, 4) == 0 and T.clearprotohalt(main, 2) == 0)
T.protoHook(false)
