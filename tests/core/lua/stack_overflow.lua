-- Lua stack overflow, C stack overflow and the parser's nesting limits; the state stays
-- usable after each.
local show = dofile("support/show.lua")
local depth, pcallDepth = 0, 0
local function recurse() depth = depth + 1; return 1 + recurse() end
show.check("Lua recursion", recurse)
print("Lua recursion depth", depth)
local function manyLocals(n)
  local a, b, c, d, e, f, g, h, i, j = n, n, n, n, n, n, n, n, n, n
  return manyLocals(n + 1) + a + b + c + d + e + f + g + h + i + j
end
show.check("recursion with many locals", manyLocals, 1)
show.check("overflow inside a coroutine", coroutine.wrap(recurse))
-- C stack overflow: each protected call, metamethod call or library callback nests a native call.
local function nestPcall()
  pcallDepth = pcallDepth + 1
  local ok, message = pcall(nestPcall)
  if not ok then error(message, 0) end
end
show.check("nested pcall", nestPcall)
print("pcall depth", pcallDepth)
local function resumeDeep() return coroutine.wrap(resumeDeep)() end
local ok, message = pcall(resumeDeep)
print("nested coroutines", ok, select(2, message:gsub(":%d+: ", "")), message:sub(-18))
show.run {
  "local function count(n) if n == 0 then return 0 end return 1 + count(n - 1) end return count(5000)",
  "local t = setmetatable({}, {}) getmetatable(t).__index = function(t, k) return t[k] end return t.x",
  "local t = setmetatable({}, {}) getmetatable(t).__add = function(x, y) return x + y end return t + 1",
  "local t = setmetatable({}, {}) getmetatable(t).__tostring = function(s) return tostring(s) end return tostring(t)",
  "local function deep(s) return (s:gsub('.', deep)) end return deep('x')",
  "local function deep() table.sort({2, 1}, function() deep() return false end) end deep()",
  -- Values pushed by library functions.
  "return select('#', unpack({}, 1, 5000))", "return select('#', unpack({}, 1, 1e6))", "return #('abc'):rep(100000)",
  "local s = '' for i = 1, 2000 do s = s .. i end return #s",
}
-- Programs beyond the parser's limits.
local function compile(label, source)
  local chunk, err = loadstring(source, "=" .. label)
  print(label .. ": " .. (chunk and "compiled" or err))
end
compile("parentheses", "return " .. ("("):rep(300) .. "1" .. (")"):rep(300))
compile("table constructors", "return " .. ("{"):rep(300) .. ("}"):rep(300))
compile("concatenation chain", "local a = '' return " .. ("a .. "):rep(300) .. "a")
compile("nested functions", ("function f() "):rep(300) .. ("end "):rep(300))
compile("nested blocks", ("do "):rep(300) .. ("end "):rep(300))
compile("too many locals", "local " .. ("v, "):rep(250) .. "v = 1")
local locals, uses = {}, {}
for i = 1, 70 do locals[i], uses[i] = "local u" .. i .. " = " .. i, "u" .. i end
compile("too many upvalues",
  table.concat(locals, "\n") .. "\nreturn function() return " .. table.concat(uses, " + ") .. " end")
compile("long but flat", "return " .. ("1 + "):rep(5000) .. "1")
show.check("still usable", function() return depth > 0, pcallDepth > 0 end)
