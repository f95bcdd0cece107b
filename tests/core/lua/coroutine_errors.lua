-- Errors across coroutine.resume and yield, and coroutine.wrap propagation.
local show = dofile("support/show.lua")
local check = show.check

local function resume(label, co, ...)
  print(label .. ": " .. show.values(coroutine.resume(co, ...)) .. " [" .. coroutine.status(co) .. "]")
end

local co = coroutine.create(function(x)
  local y = coroutine.yield(x + 1)
  error("failed with " .. y)
end)
resume("first resume", co, 1)
resume("resume into the error", co, 5)
resume("resume a dead coroutine", co)

local token = {}
co = coroutine.create(function() error(token) end)
local ok, value = coroutine.resume(co)
print("table error keeps identity", ok, value == token, coroutine.status(co))

co = coroutine.create(function() error(nil) end)
resume("nil error", co)
co = coroutine.create(function() error("level 0", 0) end)
resume("level 0", co)
co = coroutine.create(function() error("level 2", 2) end)
resume("level 2 beyond the coroutine's stack", co)

-- Yielding where 5.1 cannot.
co = coroutine.create(function()
  local ok2, message = pcall(coroutine.yield)
  coroutine.yield(ok2, message)
end)
resume("pcall sees the refusal", co)
co = coroutine.create(function()
  local t = setmetatable({}, {__index = function() return coroutine.yield("from __index") end})
  return t.x
end)
resume("yield inside a metamethod", co)
co = coroutine.create(function()
  return table.sort({3, 2, 1}, function(p, q) coroutine.yield() return p < q end)
end)
resume("yield inside a sort comparator", co)
check("yield from the main thread", coroutine.yield, 1)
co = coroutine.create(function() return coroutine.resume(coroutine.running()) end)
resume("resume the running coroutine", co)
check("resume a non-coroutine", coroutine.resume, 1)
check("create from a C function", coroutine.create, print)
check("create from a number", coroutine.create, 42)

-- Errors caught inside the coroutine leave it usable.
co = coroutine.create(function()
  for i = 1, 3 do
    local ok2, message = pcall(error, "round " .. i)
    coroutine.yield(ok2, message)
  end
  return "done"
end)
for i = 1, 5 do resume("caught inside, resume " .. i, co) end

-- coroutine.wrap rethrows; string errors gain the position of the wrap call.
local wrapped = coroutine.wrap(function() error("inside wrap") end)
check("wrap string error", wrapped)
check("wrap dead coroutine", wrapped)
wrapped = coroutine.wrap(function() error(token) end)
ok, value = pcall(wrapped)
print("wrap table error", ok, value == token)
wrapped = coroutine.wrap(function() error(42) end)
check("wrap number error", wrapped)
wrapped = coroutine.wrap(function() error() end)
check("wrap nil error", wrapped)
check("wrap of a wrap", coroutine.wrap(function()
  return coroutine.wrap(function() error("innermost") end)()
end))

-- Nested coroutines: an error in the inner one surfaces in the outer one's resume.
local outer = coroutine.create(function()
  local inner = coroutine.create(function() coroutine.yield("inner yielded") error("inner failed") end)
  coroutine.yield(coroutine.resume(inner))
  coroutine.yield(coroutine.resume(inner))
  error({inner = coroutine.status(inner)})
end)
resume("outer 1", outer)
resume("outer 2", outer)
ok, value = coroutine.resume(outer)
print("outer 3", ok, value.inner, coroutine.status(outer))

-- Errors with tracebacks of a dead coroutine.
co = coroutine.create(function() local function deep() error("deep") end deep() end)
coroutine.resume(co)
print(debug.traceback(co))
