-- Memory errors: run under a memory limit, so that the large requests below fail.
local show = dofile("support/show.lua")
local huge = 2 ^ 30
show.check("string.rep far too large", string.rep, "x", huge)
show.check("the state is still usable", function() return #string.rep("y", 1000) end)
show.check("concatenation doubling", function()
  local s = "0123456789abcdef"
  while true do s = s .. s end
end)
show.check("table growth", function()
  local t = {}
  for i = 1, huge do t[i] = i end
end)
collectgarbage()
-- A memory error does not call the xpcall handler.
local handled = false
print("xpcall: " .. show.values(xpcall(function() return string.rep("x", huge) end,
  function(m) handled = true return m end)), handled)
local co = coroutine.create(function() return string.rep("z", huge) end)
print("coroutine: " .. show.values(coroutine.resume(co)), coroutine.status(co))
show.check("coroutine.wrap", coroutine.wrap(function() return string.rep("z", huge) end))
local piece, pieces = string.rep("x", 100000), 0
show.check("load of an endless string literal", load, function()
  pieces = pieces + 1
  return pieces == 1 and "return '" or piece
end)
show.check("still usable at the end", function() return table.concat({"a", "b", "c"}) end)
