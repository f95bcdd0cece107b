-- Where error messages point: error levels, assert, and the run-time errors of the VM.
local show = dofile("support/show.lua")
local check = show.check

local function raiseAt(level) error("at level " .. level, level) end
local function caller(level) raiseAt(level) end
local function outer(level) caller(level) end

for _, level in ipairs({0, 1, 2, 3, 4, 50}) do
  check("level " .. level, outer, level)
end
check("level 2 when the caller is C", raiseAt, 2)
check("level as a string", function() error("text", "2") end)
check("level not a number", function() error("text", {}) end)

check("assert without message", assert, false)
check("assert with message", assert, nil, "assert message")
check("assert with a number", assert, false, 42)
check("assert with a table", function() assert(false, {}) end)
check("assert passing", assert, 1, 2, 3)

-- Run-time errors name the variable involved.
Global = nil
local tbl = {}
local up = nil
check("call a global", function() undefinedGlobal() end)
check("call a field", function() tbl.missing() end)
check("call a method", function() tbl:method() end)
check("call a local", function() local f; f() end)
check("call an upvalue", function() up() end)
check("index a nil global", function() return Global.field end)
check("index a nil field", function() return tbl.a.b end)
check("index a local number", function() local n = 1; return n.x end)
check("assign to a nil upvalue", function() up.x = 1 end)
check("arithmetic on nil", function() local x; return x + 1 end)
check("arithmetic on a table field", function() return tbl.count * 2 end)
check("arithmetic on a string", function() return "abc" + 1 end)
check("numeric strings convert", function() return "10" + 1, "0x10" * 1 end)
check("unary minus on a table", function() return -tbl end)
check("length of a number", function() local n = 5; return #n end)
check("concatenate a table", function() return "a" .. tbl end)
check("concatenate nil", function() return "a" .. up end)
check("concatenate a boolean", function() return true .. "" end)
check("compare number with nil", function() return 1 < up end)
check("compare two tables", function() return {} < {} end)
check("compare number with string", function() return 1 <= "2" end)
check("table index is nil", function() tbl[nil] = 1 end)
check("table index is NaN", function() tbl[0 / 0] = 1 end)
check("for initial value", function() for i = "a", 2 do end end)
check("for limit", function() for i = 1, {} do end end)
check("for step", function() for i = 1, 2, nil do end end)

-- Errors from library functions: argument checks.
check("bad argument type", string.rep)
check("bad argument through a method", function() return ("x"):rep("many") end)
check("bad option", collectgarbage, "sometimes")
check("setmetatable with a number", setmetatable, {}, 1)
check("protected metatable", function()
  local locked = setmetatable({}, {__metatable = "locked"})
  return getmetatable(locked), setmetatable(locked, {})
end)
check("invalid format", string.format, "%y", 1)
check("format missing argument", string.format, "%d")
check("malformed pattern", string.find, "abc", "[a")
check("unfinished capture", string.gsub, "abc", "(a", "")
check("invalid capture index", string.gsub, "abc", "a", "%2")
check("tonumber with a bad base", tonumber, "10", 99)
check("loadstring syntax error", loadstring, "x = = 1", "=chunk")
check("loadstring unfinished string", loadstring, "x = 'abc", "chunk")
check("load with a failing reader", load, function() error("reader failed") end)
check("load with a bad reader result", load, function() return {} end)
check("dofile of a missing file", dofile, "no/such/file.lua")
check("require of a missing module", function() return (select(2, pcall(require, "no_such_module"))):match("^[^\n]*") end)
