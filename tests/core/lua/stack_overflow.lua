-- Lua stack overflow, C stack overflow and the parser's nesting limits; the state stays
-- usable after each.
local show = dofile("support/show.lua")
local check = show.check

local depth = 0
local function recurse() depth = depth + 1; return 1 + recurse() end
check("Lua recursion", recurse)
print("Lua recursion depth", depth)
local function manyLocals(n)
  local a, b, c, d, e, f, g, h, i, j = n, n, n, n, n, n, n, n, n, n
  return manyLocals(n + 1) + a + b + c + d + e + f + g + h + i + j
end
check("recursion with many locals", manyLocals, 1)
check("after overflow the stack is usable", function()
  local function count(n) if n == 0 then return 0 end return 1 + count(n - 1) end
  return count(5000)
end)
check("overflow inside a coroutine", coroutine.wrap(recurse))

-- C stack overflow: each protected call, metamethod call or library callback nests a
-- native call.
local pcallDepth = 0
local function nestPcall()
  pcallDepth = pcallDepth + 1
  local ok, message = pcall(nestPcall)
  if not ok then error(message, 0) end
end
check("nested pcall", nestPcall)
print("pcall depth", pcallDepth)

local selfIndex = setmetatable({}, {})
getmetatable(selfIndex).__index = function(t, k) return t[k] end
check("recursive __index", function() return selfIndex.x end)

local selfAdd = setmetatable({}, {})
getmetatable(selfAdd).__add = function(x, y) return x + y end
check("recursive __add", function() return selfAdd + 1 end)

local selfString = setmetatable({}, {})
getmetatable(selfString).__tostring = function(self) return tostring(self) end
check("recursive __tostring", tostring, selfString)

local function gsubDeep(s) return (s:gsub(".", gsubDeep)) end
check("recursive gsub callback", gsubDeep, "x")

local function resumeDeep() return coroutine.wrap(resumeDeep)() end
local ok, message = pcall(resumeDeep)
local _, positions = message:gsub(":%d+: ", "")
print("nested coroutines", ok, positions, message:sub(-18))

local function sortDeep() table.sort({2, 1}, function() sortDeep() return false end) end
check("recursive sort comparator", sortDeep)

-- Programs built with string.rep and concatenation that exceed the parser's limits.
local function compile(label, source)
  local chunk, message = loadstring(source, "=" .. label)
  print(label .. ": " .. (chunk and "compiled" or message))
end
compile("parentheses", "return " .. string.rep("(", 300) .. "1" .. string.rep(")", 300))
compile("table constructors", "return " .. string.rep("{", 300) .. string.rep("}", 300))
compile("concatenation chain", "local a = '' return " .. string.rep("a .. ", 300) .. "a")
compile("nested functions", string.rep("function f() ", 300) .. string.rep("end ", 300))
compile("nested blocks", string.rep("do ", 300) .. string.rep("end ", 300))
compile("too many locals", "local " .. string.rep("v, ", 250) .. "v = 1")
compile("too many upvalues", (function()
  local lines = {}
  for i = 1, 70 do lines[#lines + 1] = "local u" .. i .. " = " .. i end
  local uses = {}
  for i = 1, 70 do uses[#uses + 1] = "u" .. i end
  return table.concat(lines, "\n") .. "\nreturn function() return " .. table.concat(uses, " + ") .. " end"
end)())
compile("long but flat", "return " .. string.rep("1 + ", 5000) .. "1")

-- Values pushed by library functions.
check("unpack of many values", function() return select("#", unpack({}, 1, 5000)) end)
check("unpack of too many values", function() return select("#", unpack({}, 1, 1e6)) end)
check("string.rep result", function() return #string.rep("abc", 100000) end)
check("concatenating many pieces", function()
  local s = ""
  for i = 1, 2000 do s = s .. i end
  return #s
end)
check("still usable", function() return depth > 0, pcallDepth > 0 end)
