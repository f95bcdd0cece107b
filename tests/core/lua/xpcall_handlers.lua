-- xpcall message handlers: called with the error value, failing themselves, or missing.
local show = dofile("support/show.lua")
local function report(label, ...) print(label .. ": " .. show.values(...)) end
local function fail(value) error(value) end
local function failA() fail("a") end
local function recurse() return 1 + recurse() end
report("handler result", xpcall(failA, function(m) return "handled: " .. m end))
report("handler sees tables", xpcall(function() fail({code = 3}) end, function(e) return e.code end))
report("handler returns nothing", xpcall(failA, function() end))
report("handler returns several", xpcall(failA, function() return 1, 2 end))
report("success skips the handler", xpcall(function() return 1, 2 end, error))
report("handler that fails", xpcall(failA, function(m) error("again: " .. m) end))
report("handler that fails with a table", xpcall(failA, function() error({}) end))
report("handler is not a function", xpcall(failA, 42))
report("missing handler", pcall(xpcall, function() end))
report("handler of a run-time error", xpcall(function() local x; return x.y end, function(m) return "got " .. m end))
report("handler of a stack overflow", xpcall(recurse, function(m) return "handled: " .. m end))
report("handler recursing on overflow", xpcall(recurse, function() return recurse() end))
local object = setmetatable({}, {__tostring = function() return "F!" end})
report("handler converts an object", xpcall(function() fail(object) end, tostring))
-- The traceback handler; the handler runs on the failing stack, where debug.getinfo sees the raiser.
local function level3() error("traced") end
local function level2() level3() end
print(xpcall(level2, debug.traceback))
report("handler on the failing stack", xpcall(function() fail("where") end, function(m)
  local info = debug.getinfo(3, "Sl")
  return m .. " | raised in " .. info.short_src .. ":" .. info.currentline
end))
-- Nested: the inner handler fails, the outer handler sees the result; a handler in a coroutine.
report("nested", xpcall(function()
  local ok, inner = xpcall(function() fail("inner") end, function() error("inner handler") end)
  fail("outer after " .. tostring(ok) .. " " .. tostring(inner))
end, function(m) return "outer handler: " .. m end))
report("inside a coroutine", coroutine.resume(coroutine.create(function()
  return xpcall(function() fail("in coroutine") end, function(m) return "co handled: " .. m end)
end)))
