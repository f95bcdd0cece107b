-- Error values of every type keep their type and identity through pcall.
local show = dofile("support/show.lua")
local check = show.check

local function raise(value) error(value) end
local function raiseAt(value, level) error(value, level) end

check("no value", error)
check("nil", raise, nil)
check("false", raise, false)
check("true", raise, true)
check("number from C", error, 42)
check("number from Lua gains a position", raise, 42)
check("float", error, 2.5)
check("string from C", error, "plain")
check("string from Lua gains a position", raise, "boom")
check("embedded zero", error, "a\0b")
check("count of results", function() return select("#", pcall(error)) end)

local long = string.rep("0123456789", 500)
local ok, message = pcall(error, long)
print("long message", ok, #message, message == long)

local tbl = {}
ok, message = pcall(raise, tbl)
print("table", ok, type(message), message == tbl)

local fn = function() end
ok, message = pcall(raise, fn)
print("function", ok, type(message), message == fn)

local thread = coroutine.create(fn)
ok, message = pcall(raise, thread)
print("thread", ok, type(message), message == thread)

local proxy = newproxy(true)
getmetatable(proxy).__tostring = function() return "proxy object" end
ok, message = pcall(raise, proxy)
print("userdata", ok, type(message), message == proxy, tostring(message))

-- Error objects with __tostring: the object itself travels, tostring shows it.
local Failure = {}
Failure.__index = Failure
Failure.__tostring = function(self) return "Failure(" .. self.code .. ")" end
local failure = setmetatable({code = 17}, Failure)
ok, message = pcall(raise, failure)
print("object", ok, message == failure, tostring(message), message.code)

local broken = setmetatable({}, {__tostring = function() error("tostring broke") end})
ok, message = pcall(raise, broken)
print("object whose __tostring fails", ok, message == broken)
check("tostring of it", tostring, broken)

local notText = setmetatable({}, {__tostring = function() return 99 end})
ok, message = pcall(raise, notText)
print("object whose __tostring gives a number", ok, message == notText, tostring(message))
check("print of it", print, notText)

-- Nested protected calls.
check("pcall of pcall", pcall, error, "inner")
check("pcall without a function", pcall)
check("calling a nil value", pcall, nil)
check("error rethrown at level 0", function()
  local _, inner = pcall(raise, "first")
  error(inner, 0)
end)

-- A finalizer that fails raises its error from the collection that ran it.
collectgarbage("stop")
do
  local doomed = newproxy(true)
  getmetatable(doomed).__gc = function() error("finalizer failed", 0) end
end
check("collect", collectgarbage, "collect")
collectgarbage("restart")
check("collect again", collectgarbage, "collect")
