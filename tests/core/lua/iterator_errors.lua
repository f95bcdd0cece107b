-- Errors inside iterators, generic for and library functions that call back into Lua.
local show = dofile("support/show.lua")
local check = show.check

local function failingIterator(limit)
  local count = 0
  return function()
    count = count + 1
    if count > limit then error("iterator failed after " .. limit) end
    return count
  end
end

check("custom iterator", function()
  local seen = {}
  for value in failingIterator(3) do seen[#seen + 1] = value end
  return #seen
end)
check("custom iterator, counted before the failure", function()
  local seen = 0
  local ok = pcall(function() for _ in failingIterator(5) do seen = seen + 1 end end)
  return ok, seen
end)
check("iterator is not a function", function() for _ in 42 do end end)
check("iterator is nil", function() for _ in nil do end end)
check("pairs of nil", function() for _ in pairs(nil) do end end)
check("ipairs of a number", function() for _ in ipairs(7) do end end)
check("next with a bad key", next, {a = 1}, "missing")
check("error inside the loop body", function()
  for key in pairs({only = true}) do error("body saw " .. key) end
end)

-- A pairs-like iterator object with a __call metamethod.
local iterable = setmetatable({}, {__call = function(_, _, last)
  if last == 2 then error({stopped = last}) end
  return (last or 0) + 1
end})
local ok, value = pcall(function() for _ in iterable do end end)
print("callable iterator", ok, type(value), value.stopped)

-- Iterators from coroutines.
local function generator()
  return coroutine.wrap(function()
    coroutine.yield(1)
    coroutine.yield(2)
    error("generator failed")
  end)
end
check("coroutine.wrap iterator", function()
  local total = 0
  for v in generator() do total = total + v end
  return total
end)

-- string.gmatch, string.gsub and table.sort calling Lua functions that fail.
check("gmatch body", function()
  for word in ("alpha beta"):gmatch("%a+") do if word == "beta" then error(word) end end
end)
check("gsub callback", string.gsub, "abc", "%w", function(c) if c == "b" then error("no " .. c) end end)
check("gsub table replacement with __index", string.gsub, "abc", "%w",
  setmetatable({}, {__index = function(_, c) error("lookup " .. c) end}))
check("gsub invalid replacement", string.gsub, "abc", "%w", function() return {} end)
check("sort comparator fails", table.sort, {3, 1, 2}, function() error("compare") end)
check("sort invalid order function", function()
  local values = {}
  for i = 1, 100 do values[i] = i % 7 end
  table.sort(values, function() return true end)
end)
check("sort mixed types", table.sort, {1, "x", 2})
check("foreach callback", table.foreach, {1}, function() error("foreach") end)
check("concat with a table inside", table.concat, {1, {}, 3})
check("insert with wrong arguments", table.insert, {}, 1, 2, 3)
check("select out of range", function() return select(-1) end)
check("unpack with too many results", unpack, {}, 1, 1e7)
