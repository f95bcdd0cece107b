-- Loads tqtestmod through package.cpath and exercises it; prints one line per check.
local mod = require("tqtestmod")
print("version", mod.version, package.loaded.tqtestmod == mod)

local squares = mod.map(mod.range(5), function(x) return x * x end)
print("map", table.concat(squares, " "))

print("fail", pcall(mod.fail, "raised from C"))
print("fail from Lua", pcall(function() mod.fail("with a position") end))
print("bad argument", pcall(mod.range, "many"))

local token = {}
local ok, value = pcall(mod.map, {1, 2}, function(x) if x == 2 then error(token) end return x end)
print("error through the C frame", ok, value == token)

print("protect ok", mod.protect(function(a, b) return a + b end, 2, 3))
print("protect error", mod.protect(function() error("caught in C", 0) end))
print("protect nested", mod.protect(mod.fail, "nested"))

local co = coroutine.wrap(function() return mod.map({1}, function(x) coroutine.yield(x) end) end)
print("yield across the C frame", pcall(co))
