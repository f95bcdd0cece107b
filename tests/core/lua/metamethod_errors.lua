-- Errors raised inside metamethods and by missing metamethods.
local show = dofile("support/show.lua")
local check = show.check

local function failing(name)
  return function() error(name .. " failed") end
end

local mt = {
  __index = failing("__index"),
  __newindex = failing("__newindex"),
  __add = failing("__add"),
  __sub = failing("__sub"),
  __unm = failing("__unm"),
  __concat = failing("__concat"),
  __lt = failing("__lt"),
  __le = failing("__le"),
  __eq = failing("__eq"),
  __call = failing("__call"),
  __tostring = failing("__tostring"),
}
local a, b = setmetatable({}, mt), setmetatable({}, mt)

check("__index", function() return a.field end)
check("__newindex", function() a.field = 1 end)
check("__add", function() return a + 1 end)
check("__add on the right", function() return 1 + a end)
check("__sub", function() return a - b end)
check("__unm", function() return -a end)
check("__concat", function() return a .. "x" end)
check("__concat on the right", function() return "x" .. a end)
check("__lt", function() return a < b end)
check("__le", function() return a <= b end)
check("__eq", function() return a == b end)
check("__call", function() return a(1, 2) end)
check("__tostring via tostring", tostring, a)
check("__tostring via print", print, a)
check("rawget skips __index", function() return rawget(a, "field") end)

-- Error values other than strings pass through metamethods unchanged.
local token = {}
local tokenThrower = setmetatable({}, {__index = function() error(token) end})
local ok, value = pcall(function() return tokenThrower.x end)
print("table error through __index", ok, value == token)

-- __index and __newindex chains.
local base = setmetatable({}, {__index = function(_, key) return "base " .. key end})
local derived = setmetatable({}, {__index = base})
check("chained __index", function() return derived.name end)
local loop = {}
setmetatable(loop, {__index = loop})
check("__index loop", function() return loop.x end)
local newLoop = {}
setmetatable(newLoop, {__newindex = newLoop})
check("__newindex loop", function() newLoop.x = 1 end)
check("__index is not a table or function", function()
  return setmetatable({}, {__index = 42}).x
end)
check("__call is not callable", function() return setmetatable({}, {__call = 42})() end)

-- Metamethods that return without error but break their contract.
local badLt = setmetatable({}, {__lt = function() return nil end})
check("__lt returning nil", function() return badLt < badLt end)
local mixed = setmetatable({}, {__lt = function() return true end})
check("__lt between different metatables", function()
  return mixed < setmetatable({}, {__lt = function() return true end})
end)
check("__concat returning a table", function()
  return type(setmetatable({}, {__concat = function() return {} end}) .. "x")
end)
check("__eq not consulted for different types", function() return a == 1 end)

-- A metamethod that calls back into a failing library function.
local viaLibrary = setmetatable({}, {__index = function(_, key) return string.rep(key) end})
check("library error inside __index", function() return viaLibrary.x end)

-- Errors from metamethods of userdata.
local proxy = newproxy(true)
local proxyMt = getmetatable(proxy)
proxyMt.__len = failing("__len")
proxyMt.__index = function(_, key) return "proxy " .. key end
check("__len of userdata", function() return #proxy end)
check("__index of userdata", function() return proxy.name end)
check("__newindex missing on userdata", function() proxy.name = 1 end)
