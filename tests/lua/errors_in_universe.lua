-- Error semantics inside a universe, where every error is a C++ exception underneath.

local function check(expected, ...)
  local ok, value = pcall(...)
  assert(not ok, "call did not fail")
  assert(value == expected, ("expected %s, got %s"):format(tostring(expected), tostring(value)))
end

-- Error values of any type pass through unchanged.
local t = {}
check(t, error, t)
check("42", error, 42)  -- a number is a string to error: a position is added (none here)
check(42, error, 42, 0)
check(nil, error, nil)
check(false, error, false)
local proxy = newproxy()
check(proxy, error, proxy)

-- Levels add positions as in stock Lua: level 1 names the erroring function's line,
-- level 2 its caller's. A file's chunk name is its path without Lua's "@", so positions
-- read [string "path"]:line (a long path is shortened with "...").
local function level1() error("one", 1) end
local function level2() error("two", 2) end
local ok, message = pcall(function() level1() end)
assert(not ok and message:match('^%[string "[^"]*"%]:' .. debug.getinfo(level1, "S").linedefined .. ': one$'), message)
local callerLine = debug.getinfo(1, "l").currentline + 1
ok, message = pcall(function() level2() end)
assert(not ok and message:match(":" .. callerLine .. ": two$"), message)
check("zero", error, "zero", 0)

-- Errors in metamethods and iterators.
local angry = setmetatable({}, {
  __index = function() error("no such field", 0) end,
  __add = function() error("no adding", 0) end,
  __concat = function() error("no concat", 0) end,
})
check("no such field", function() return angry.x end)
check("no adding", function() return angry + 1 end)
check("no concat", function() return angry .. "" end)
check("iterator", function() for _ in function() error("iterator", 0) end do end end)

-- Errors cross coroutine boundaries and leave the coroutine dead.
local co = coroutine.create(function(a)
  local b = coroutine.yield(a + 1)
  error({ code = b })
end)
assert(select(2, coroutine.resume(co, 1)) == 2)
local resumed, err = coroutine.resume(co, 7)
assert(not resumed and err.code == 7)
assert(coroutine.status(co) == "dead")
local wrapped = coroutine.wrap(function() end)
wrapped()
ok, message = pcall(wrapped)
assert(not ok and message:match("cannot resume dead coroutine$"), message)

-- Deep recursion is a catchable error, and the universe goes on afterwards.
local function recurse(n) return recurse(n + 1) + 1 end
local deep, overflow = pcall(recurse, 1)
assert(not deep and overflow:match("stack overflow"), overflow)

-- xpcall's handler sees the original value, and a failing handler is reported.
local handled = select(2, xpcall(function() error("inner", 0) end, function(m) return "handled " .. m end))
assert(handled == "handled inner", handled)
local failed = select(2, xpcall(function() error("inner") end, function() error("again") end))
assert(type(failed) == "string", tostring(failed))

assert(debug.getregistry().universeName == "test")
