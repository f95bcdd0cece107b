-- The chunk loader in a universe with a debugger: the environment slot, code capture, the
-- debugger's substitute text, the call shortcuts, message sending and native functions.
cases {
  {"return loadChunk('x = 1', 'bad', 5)", "t:1: bad argument #3 to 'loadChunk' (table expected, got number)"},
  {"loadOnEmptyStack()", "Assertion failed: 0 < environmentIndex"},
  {"return table.concat({loadChunk('x = = 1', nil)}, '|')", [[3|[string "< anonymous >"]:1: unexpected symbol near '='|0]]},
  {"return select(2, pcallChunk('x = =', 'p'))", [[[string "p"]:1: unexpected symbol near '=']]},
  {"return table.concat({pcallChunk('error(\"boom\", 0)', 'p')}, '|')", "2|boom"},
  {"return table.concat({pcallChunk('return 7, 8', 'p')}, '|')", "0|7|8"},
  {"return table.concat({callChunk('return 1, 2', 'two')}, '|')", "2|1|2"},
  {"return callChunk('', 'none')", 0}, {"callChunk('error(\"boom\", 0)', 'c')", "boom"},
  {"callChunk('x = = 1', 'bad')", [[[string "bad"]:1: unexpected symbol near '=']]},
  {"loadAndCapture({}, 'n')", "t:1: bad argument #1 to 'loadAndCapture' (string expected, got table)"},
  {"loadAndCapture('return +', 'bad')", [[[string "bad"]:1: unexpected symbol near '+']]},
  {"y = 1 return loadAndCapture('return y', 7, {y = 2})()", 2},
  {"return debug.getinfo(loadAndCapture('return y', 7), 'S').source", "7"},
  -- Message sending.
  {"return send(setmetatable({}, {__index = {greet = function(_, n) return 'hello ' .. n end}}), 'you')", "hello you"},
  {"return send(setmetatable({}, {__hasmethods = {greet = function() return 'methods' end}}))", "methods"},
  {"return select('#', sendForOne({greet = function() return 1, 2 end}))", 1},
  {"return stackSend({greet = function(_, x) return x end}, 'x', 'greet')", "x"},
  {"send({})", "t:1: method not found: greet"}, {"send({greet = 5})", "t:1: method not found: greet"},
  {"stackSend({}, 'greet')", "t:1: method not found: < unknown >"},
  {"stackSend({}, 5)", "t:1: bad argument #2 to 'stackSend' (message identifier expected, got number)"},
  {"sendNegative({})", "Assertion failed: 0 <= inCount"},
  {"sendMissing({})", "Assertion failed: 2 + inCount <= msgIndex"},
  {"send({greet = function() error('inside', 0) end})", "inside"},
  -- Native functions.
  {"return closure(0, false)", nil}, {"return select(2, closure(2, true, 'a', 'b')())", "b"},
  {"closure(-1, true)", "Assertion failed: 0 <= values"},
  {"closure(1, false, 'a')", "Assertion failed: func || !values"},
  {"return functionFor(1, 0)()", 42}, {"return functionFor(2, 0)()", 42},
  {"return functionFor(1, 0) == functionFor(2, 0)", true},
  {"return functionFor(1, nil) ~= functionFor(1, nil)", true}, {"return functionFor(1, nil)()", 42},
  {"nullFunction()", "Assertion failed: func"},
  {"return select('#', withPool(function(...) return ... end, 1, nil, 3))", 3},
  {"withPool()", "t:1: bad argument #1 to 'withPool' (value expected)"},
  {"withPool(error, 'unprotected', 0)", "unprotected"},
}

-- The environment slot: nil keeps the globals, a table receives the chunk's globals.
local env = {y = "from env"}
local status, f, grown = T.loadChunk("x = 5 return y", "env", env)
assert(status == 0 and grown == 0 and f() == "from env" and env.x == 5 and x == nil)
status, f = T.loadChunk("x = 6", "globals", nil)
f()
same(x, 6, "global")
same(T.logged(), "", "load errors are not logged")

-- Captured chunks keep their exact text and reach the real environment.
T.capture(true)
local source = "written = 'a\0b' -- \0 in a comment\nreturn type(written)"
local captured = T.loadAndCapture(source, "captured.lua")
assert(T.codeChunk(captured) == source and T.chunkName(captured) == "captured.lua")
assert(captured() == "string" and written == "a\0b" and rawget(getfenv(captured), "written") == nil)
local own = {}
T.loadAndCapture("z = 1", "own environment", own)()
assert(own.z == 1 and z == nil)
local _, unnamed = T.loadChunk("return 1", nil)
assert(T.codeChunk(unnamed) == "return 1" and T.chunkName(unnamed) == nil)
assert(T.codeChunk(print) == nil and T.codeChunk(function() end) == nil and T.chunkName("f") == nil)
-- Turning capture off affects only the chunks loaded afterwards.
T.capture(false)
local later = T.loadAndCapture("return 1", "later")
assert(T.codeChunk(later) == nil and T.chunkName(captured) == "captured.lua")

-- The capture hook sees every loaded chunk; a failing hook still gives the function.
T.capture(false, "record")
assert(T.codeChunk(T.loadAndCapture("return 'a\0b'", "hooked")) == nil)
T.loadChunk("return 2", nil)
same(T.capture(true, "throw"), "return 'a\0b'|hooked\nreturn 2|(null)\n", "hooked")
for _, hook in ipairs({"throw", "raise"}) do
  T.capture(true, hook)
  local st, loaded, growth = T.loadChunk("return 'loaded'", "failing hook")
  assert(st == 0 and growth == 0 and loaded() == "loaded" and T.codeChunk(loaded) == "return 'loaded'", hook)
end

-- The debugger's substitute text replaces the source when it compiles.
T.capture(false, "record")
local asked = {}
debug.getregistry().loadCodeFromDebugger = function(name)
  asked[#asked + 1] = name
  if name == "swapped" then return "return 'substitute'" end
  if name == "number" then return 12 end
  if name == "broken" then return "return +" end
  if name == "raising" then error("no substitute") end
  if name == "table" then return {} end
end
same(select(2, T.callChunk("return 'original'", "swapped")), "substitute", "substitute")
for _, name in ipairs({"number", "broken", "raising", "table", "plain"}) do
  same(select(2, T.callChunk("return 'original'", name)), "original", name)
end
same(select(2, T.callChunk("return 'original'", nil)), "original", "unnamed")
same(table.concat(asked, ","), "swapped,number,broken,raising,table,plain", "asked")
local original = "return 'original'|"
same(T.capture(false), "return 'substitute'|swapped\n" .. original .. "number\n" .. original .. "broken\n" ..
  original .. "raising\n" .. original .. "table\n" .. original .. "plain\n" .. original .. "(null)\n", "captured texts")

-- luaL_loadfile (dofile, loadfile, require): chunk names, whole-file reads, the interpreter
-- line, unreadable files and captured file text.
local folder = os.tmpname()
os.remove(folder)
assert(os.execute("mkdir " .. folder) == 0)
local function write(name, text)
  local file = assert(io.open(folder .. "/" .. name, "wb"))
  file:write(text)
  file:close()
  return folder .. "/" .. name
end
local plain = write("plain.lua", "return debug.getinfo(1, 'S').source")
same(dofile(plain), plain, "chunk name of a path without backslashes")
same(dofile(write("C:\\scripts\\tool.lua", "return debug.getinfo(1, 'S').source")), "tool.lua", "after a backslash")
same(loadfile(write("big.lua", "count = 0\n" .. ("count = count + 1\n"):rep(20000) .. "return count"))(), 20000, "big")
same(dofile(write("script.lua", "#!/usr/bin/env tqlua\nreturn debug.getinfo(1, 'l').currentline")), 2, "#! line")
local missing = folder .. "/missing.lua"
same(select(2, pcall(dofile, missing)), "cannot open " .. missing .. ": No such file or directory", "missing")
same(select(2, loadfile(folder)), "cannot read " .. folder .. ": Is a directory", "directory")
T.capture(true)
local zero = "local s = 'zero\0byte'\nreturn #s"
local fromFile = loadfile(write("zero.lua", zero))
assert(fromFile() == 9 and T.codeChunk(fromFile) == zero)
T.capture(false)
os.execute("rm -r " .. folder)
