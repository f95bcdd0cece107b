-- Loads tqtestmod through package.cpath and exercises it; prints one line per check.
local mod = require("tqtestmod")
print("version", mod.version, package.loaded.tqtestmod == mod)
print("map", table.concat(mod.map(mod.range(5), function(x) return x * x end), " "))
print("fail", pcall(mod.fail, "raised from C"))
print("fail from Lua", pcall(function() mod.fail("with a position") end))
print("bad argument", pcall(mod.range, "many"))
local token = {}
local ok, value = pcall(mod.map, {1, 2}, function(x) if x == 2 then error(token) end return x end)
print("error through the C frame", ok, value == token, #mod.map(mod.range(100), tostring))
print("protect ok", mod.protect(function(a, b) return a + b end, 2, 3))
print("protect error", mod.protect(function() error("caught in C", 0) end))
print("protect nested", mod.protect(mod.fail, "nested"))
print("yield across the C frame", pcall(coroutine.wrap(function() return mod.map({1}, coroutine.yield) end)))
