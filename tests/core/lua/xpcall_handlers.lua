-- xpcall message handlers: called with the error value, failing themselves, or missing.
local show = dofile("support/show.lua")

local function report(label, ...)
  print(label .. ": " .. show.values(...))
end
local function fail(value) error(value) end

report("handler result", xpcall(function() fail("a") end, function(m) return "handled: " .. m end))
report("handler sees tables", xpcall(function() fail({code = 3}) end, function(e) return e.code end))
report("handler returns nothing", xpcall(function() fail("a") end, function() end))
report("handler returns several", xpcall(function() fail("a") end, function() return 1, 2 end))
report("success skips the handler", xpcall(function() return 1, 2 end, error))
report("handler that fails", xpcall(function() fail("a") end, function(m) error("again: " .. m) end))
report("handler that fails with a table", xpcall(function() fail("a") end, function() error({}) end))
report("handler is not a function", xpcall(function() fail("a") end, 42))
report("missing handler", pcall(xpcall, function() end))
report("handler of a run-time error",
  xpcall(function() local x; return x.y end, function(m) return "got " .. m end))

-- The traceback handler of debug.
local function level3() error("traced") end
local function level2() level3() end
local ok, trace = xpcall(level2, debug.traceback)
print(ok)
print(trace)

-- The handler runs on the failing stack: debug.getinfo sees the raiser.
ok, trace = xpcall(function() fail("where") end, function(m)
  local info = debug.getinfo(3, "Sl")
  return m .. " | raised in " .. info.short_src .. ":" .. info.currentline
end)
report("handler on the failing stack", ok, trace)

-- Handlers for stack overflow still run.
local function recurse() return 1 + recurse() end
report("handler of a stack overflow", xpcall(recurse, function(m) return "handled: " .. m end))
report("handler recursing on overflow", xpcall(recurse, function() return recurse() end))

-- Nested xpcall: the inner handler fails, the outer handler sees the result.
report("nested", xpcall(function()
  local ok2, inner = xpcall(function() fail("inner") end, function() error("inner handler") end)
  fail("outer after " .. tostring(ok2) .. " " .. tostring(inner))
end, function(m) return "outer handler: " .. m end))

-- A handler inside a coroutine.
local co = coroutine.create(function()
  return xpcall(function() fail("in coroutine") end, function(m) return "co handled: " .. m end)
end)
report("inside a coroutine", coroutine.resume(co))

-- Error objects with __tostring through the handler.
local Failure = setmetatable({}, {__tostring = function() return "Failure!" end})
report("handler converts an object", xpcall(function() fail(Failure) end, tostring))
