-- Errors across coroutine.resume and yield, and coroutine.wrap propagation.
local show = dofile("support/show.lua")
local function resume(label, co, ...)
  print(label .. ": " .. show.values(coroutine.resume(co, ...)) .. " [" .. coroutine.status(co) .. "]")
end
local function resumeNew(label, f, ...) resume(label, coroutine.create(f), ...) end

local co = coroutine.create(function(x) error("failed with " .. coroutine.yield(x + 1)) end)
resume("first resume", co, 1)
resume("resume into the error", co, 5)
resume("resume a dead coroutine", co)
local token = {}
co = coroutine.create(function() error(token) end)
local ok, value = coroutine.resume(co)
print("table error keeps identity", ok, value == token, coroutine.status(co))
resumeNew("nil error", function() error(nil) end)
resumeNew("level 0", function() error("level 0", 0) end)
resumeNew("level 2 beyond the coroutine's stack", function() error("level 2", 2) end)
-- Yielding where 5.1 cannot.
resumeNew("pcall sees the refusal", function() coroutine.yield(pcall(coroutine.yield)) end)
resumeNew("yield inside a metamethod", function()
  return setmetatable({}, {__index = function() return coroutine.yield("from __index") end}).x
end)
resumeNew("yield inside a sort comparator", function()
  return table.sort({3, 2, 1}, function(p, q) coroutine.yield() return p < q end)
end)
resumeNew("resume the running coroutine", function() return coroutine.resume(coroutine.running()) end)
show.run {"coroutine.yield(1)", "return coroutine.resume(1)", "coroutine.create(print)", "coroutine.create(42)"}

-- Errors caught inside the coroutine leave it usable.
co = coroutine.create(function()
  for i = 1, 3 do coroutine.yield(pcall(error, "round " .. i)) end
  return "done"
end)
for i = 1, 5 do resume("caught inside, resume " .. i, co) end

-- coroutine.wrap rethrows; string errors gain the position of the wrap call.
local wrapped = coroutine.wrap(function() error("inside wrap") end)
show.check("wrap string error", wrapped)
show.check("wrap dead coroutine", wrapped)
ok, value = pcall(coroutine.wrap(function() error(token) end))
print("wrap table error", ok, value == token)
show.check("wrap number error", coroutine.wrap(function() error(42) end))
show.check("wrap nil error", coroutine.wrap(function() error() end))
show.check("wrap of a wrap", coroutine.wrap(function() return coroutine.wrap(function() error("innermost") end)() end))

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
-- The traceback of a dead coroutine.
co = coroutine.create(function() local function deep() error("deep") end deep() end)
coroutine.resume(co)
print(debug.traceback(co))
