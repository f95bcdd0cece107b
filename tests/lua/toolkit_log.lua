-- The log channel, Lua's print, tracebacks, short descriptions and dumps.
local function line(text) return "L: " .. text .. "\r\n" end
T.logged()

T.print(1, nil, true) same(T.logged(), line("1\tnil\ttrue"), "print")
T.print() same(T.logged(), line(""), "empty print")
T.print(2.5, "a\tb", 1e100) same(T.logged(), line("2.5\ta\tb\t1e+100"), "numbers")
T.print(setmetatable({}, {__tostring = function() error("no") end}), "after")
same(T.logged(), line("< unknown >\tafter"), "failing tostring")
T.printStdout("same", 1) same(T.logged(), line("same\t1"), "stdout form")
T.debugPrint("never")
same(T.printf(), 0, "printf leaves the stack")
same(T.logged(), line("x=5 1.5 %"), "printf")
T.logString(nil) same(T.logged(), "L: \r\n", "null text")

-- print uses the global tostring as it finds it.
local stock = tostring
tostring = function(v) if v == 1 then return 0.5 elseif v == 2 then return {} end return "x" end
T.print(1, 2, 3, "kept")
tostring = "not a function"
T.print(1, "kept")
tostring = stock
same(T.logged(), line("0.5\t\tx\tkept") .. line("< unknown >\tkept"), "replaced tostring")

-- Traceback lines: level, kind, name (padded to 30) and position.
local function head(text, lines) return text:match("^" .. ("[^\n]*\n"):rep(lines)) end
same(head(outcome([[local function handler(t, k) return (traceback('boom')) end
local function reader() local keep = handler return (setmetatable({}, {__index = handler}).x) end
local function aVeryLongFunctionNameOfMoreThan30Chars() return (reader()) end
return (aVeryLongFunctionNameOfMoreThan30Chars())]]), 6), [[boom
    0: global   traceback                      - C
    1: upval    handler                        - =t:1
    2: upvalue  reader                         - =t:2
    3: local    aVeryLongFunctionNameOfMoreThan30Chars - =t:3
    4:          [unnamed]                      - =t:4
]], "traceback")
same(head(outcome("local function f() return traceback(nil, 1) end return (f())"), 1),
  "    1: local    f                              - =t:1\n", "skipped levels")

-- Stripped code (no line information) is placed by its lines and instruction index.
local function strip(chunk)  -- the debug sections of a dumped main chunk without nested functions
  local int = 4
  local function count(at) return chunk:byte(at) + chunk:byte(at + 1) * 256 end
  local at = 13 + 8 + count(13) + 2 * int + 4
  at = at + int + 4 * count(at)
  local constants = count(at)
  at = at + int
  for _ = 1, constants do
    local kind = chunk:byte(at)
    at = at + 1 + (kind == 1 and 1 or kind == 3 and 8 or kind == 4 and 8 + count(at + 1) or 0)
  end
  assert(count(at) == 0, "nested functions")
  return chunk:sub(1, at + int - 1) .. string.rep("\0", 3 * int)
end
local stripped = loadstring(strip(string.dump(loadstring("local a = 1\nreturn (traceback())", "=stripped"))))
setfenv(stripped, setmetatable({}, {__index = T}))
same(head(stripped(), 2), "    0: global   traceback                      - C\n" ..
  "    1: local    stripped                       - 0:0+2\n", "stripped")

-- Dumps log one line unless the error was reported with its own identifier.
outcome("dumpTraceback('failure')")
same(head(T.logged(), 3), "L: failure\n    0: global   dumpTraceback                  - C\n" ..
  "    1:          [unnamed]                      - =t:1\n", "dump")
T.dumpTraceback("already told <TqErrorID> 12", "<TqErrorID>")
same(T.logged(), "", "reported errors")
outcome("dumpSkipping('skipped', 1)")
same(head(T.logged(), 2), "L: skipped\n    1:          [unnamed]                      - =t:1\n", "skipping")
T.dumpTrace()
same(head(T.logged(), 2), "L: \n    0: field    dumpTrace                      - C\n", "dumpTrace")

-- Short descriptions by toolkit type; the dumps print nothing and keep the stack.
local long = "a long string that is never shortened by the description at all"
for _, case in ipairs({{nil, "nil"}, {true, "true"}, {T.light(true), "aLightData"}, {2.5, "2.5"},
                       {long, '"' .. long .. '"'}, {{}, "aTable"}, {print, "aFunction"}, {T.heavy(1), "aHeavyData"},
                       {coroutine.create(function() end), "aThread"}, {T.tagged(1, 8), "aNativeObject"}}) do
  local short, full = T.describe(case[1])
  assert(short == case[2] and full == case[2], case[2] .. " described as " .. tostring(short))
end
same(T.describe(), "none", "no value")
same(T.dumps("x", {}), 2, "dumps keep the stack")
same(T.logged(), "", "dumps print nothing")
