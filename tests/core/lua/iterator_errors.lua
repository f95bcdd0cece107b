-- Errors inside iterators, generic for and library functions that call back into Lua.
local show = dofile("support/show.lua")
local function failingIterator(limit)
  local count = 0
  return function()
    count = count + 1
    if count > limit then error("iterator failed after " .. limit) end
    return count
  end
end
show.check("custom iterator", function() for _ in failingIterator(3) do end end)
show.check("custom iterator, counted before the failure", function()
  local seen = 0
  local ok = pcall(function() for _ in failingIterator(5) do seen = seen + 1 end end)
  return ok, seen
end)
local callable = setmetatable({}, {__call = function(_, _, last)
  if last == 2 then error({stopped = last}) end
  return (last or 0) + 1
end})
local ok, value = pcall(function() for _ in callable do end end)
print("callable iterator", ok, type(value), value.stopped)
show.check("coroutine.wrap iterator", function()
  local total = 0
  for v in coroutine.wrap(function() coroutine.yield(1) coroutine.yield(2) error("generator failed") end) do
    total = total + v
  end
  return total
end)
show.run {
  "for _ in 42 do end", "for _ in nil do end", "for _ in pairs(nil) do end", "for _ in ipairs(7) do end",
  "return next({a = 1}, 'missing')", "for key in pairs({only = true}) do error('body saw ' .. key) end",
  "for w in ('alpha beta'):gmatch('%a+') do if w == 'beta' then error(w) end end",
  "return string.gsub('abc', '%w', function(c) if c == 'b' then error('no ' .. c) end end)",
  "return string.gsub('abc', '%w', setmetatable({}, {__index = function(_, c) error('lookup ' .. c) end}))",
  "return string.gsub('abc', '%w', function() return {} end)", "table.sort({3, 1, 2}, function() error('compare') end)",
  "local v = {} for i = 1, 100 do v[i] = i % 7 end table.sort(v, function() return true end)",
  "table.sort({1, 'x', 2})", "table.foreach({1}, function() error('foreach') end)",
  "return table.concat({1, {}, 3})", "table.insert({}, 1, 2, 3)", "return select(-1)", "return unpack({}, 1, 1e7)",
}
