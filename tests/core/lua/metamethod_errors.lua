-- Errors raised inside metamethods and by missing or broken metamethods.
local show = dofile("support/show.lua")
local mt = {}
for _, event in ipairs({"__index", "__newindex", "__add", "__sub", "__unm", "__concat", "__lt", "__le", "__eq",
                        "__call", "__tostring"}) do
  mt[event] = function() error(event .. " failed") end
end
a, b = setmetatable({}, mt), setmetatable({}, mt)
show.run {
  "return a.field", "a.field = 1", "return a + 1", "return 1 + a", "return a - b", "return -a", "return a .. 'x'",
  "return 'x' .. a", "return a < b", "return a <= b", "return a == b", "return a(1, 2)", "return tostring(a)",
  "print(a)", "return rawget(a, 'field')",
  "local base = setmetatable({}, {__index = function(_, k) return 'base ' .. k end})"
    .. " return setmetatable({}, {__index = base}).name",
  "local loop = {} setmetatable(loop, {__index = loop}) return loop.x",
  "local loop = {} setmetatable(loop, {__newindex = loop}) loop.x = 1",
  "return setmetatable({}, {__index = 42}).x", "return setmetatable({}, {__call = 42})()",
  "local t = setmetatable({}, {__lt = function() end}) return t < t",
  "return setmetatable({}, {__lt = function() return true end}) < setmetatable({}, {__lt = function() return true end})",
  "return type(setmetatable({}, {__concat = function() return {} end}) .. 'x')", "return a == 1",
  "return setmetatable({}, {__index = function(_, k) return string.rep(k) end}).x",
  "local p = newproxy(true) getmetatable(p).__len = function() error('__len failed') end return #p",
  "local p = newproxy(true) getmetatable(p).__index = function(_, k) return 'proxy ' .. k end return p.name",
  "local p = newproxy(true) p.name = 1",
}
local token = {}
local ok, value = pcall(function() return setmetatable({}, {__index = function() error(token) end}).x end)
print("table error through __index", ok, value == token)
