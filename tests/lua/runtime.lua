-- Exceptions as Lua sees them, the throw and catch hooks, and the host hooks.
cases {
  -- Native exceptions become run-time errors at the protected-call boundary.
  {"return select(2, pcall(throwStd, 'disk on fire'))", "disk on fire"},
  {"return select(2, pcall(coroutine.wrap(function() throwStd('in a coroutine') end)))", "in a coroutine"},
  {"return select(2, pcall(throwOther))", "(unknown C++ exception)"},
  {"return select(2, pcall(throwNullWhat))", "(std::exception with NULL message?!)"},
  {"return select(2, pcall(throwNative, 'Assertion failed: packed'))", "Assertion failed: packed"},
  {"return select(2, pcall(programError, 'from Lua side'))", "from Lua side"},
  -- The Lua-error throwers' texts, without a position.
  {"setFieldError('Point', 'x')", "Point does not support setting field x."},
  {"setFieldError('Point')", "Point does not support setting the requested field."},
  {"setFieldError(nil, 'x')", "Could not set field x in the target object."},
  {"setFieldError()", "Could not set a field in the target object."},
  {"getFieldError('Point', 'y')", "Point does not support reading field y."},
  {"getFieldError('Point')", "Point does not support reading the requested field."},
  {"getFieldError(nil, 'y')", "Could not read field y in the target object."},
  {"getFieldError()", "Could not read a field in the target object."},
  {"missingType('Matrix')", "No implementation available for Matrix."},
  {"missingType()", "No implementation available for this type."},
  {"unsupported('resize')", "The target does not implement resize."},
  {"unsupported()", "The target does not implement this method."},
}

-- The catch hook sees foreign exceptions only.
T.caught()
pcall(T.throwStd, "disk on fire")
pcall(T.throwOther)
pcall(T.throwNative, "program error")
pcall(error, "plain")
same(T.caught(), "disk on fire\nNULL\n", "caught")

-- The throw hook is told the description of each Lua error: what tostring gives, whatever
-- the value, a replaced tostring and a string __tostring included; a failing __tostring
-- leaves "LuaRunException", itself after the error it raised.
T.thrown()
local expected = {}
local function raise(value, text)
  pcall(error, value, 0)
  expected[#expected + 1] = (text or tostring(value)) .. "\n"
end
for _, value in ipairs({42, 1 / 3, 1e300, -1 / 0, true, false, {}, print, coroutine.create(function() end),
                        newproxy(), "plain"}) do
  raise(value)
end
raise(nil, "nil")
raise("up to\0here", "up to")
raise(setmetatable({}, {__tostring = function() return "custom" end}))
pcall(error, setmetatable({}, {__tostring = function() error("no", 0) end}))
expected[#expected + 1] = "no\nLuaRunException\n"
local strings = getmetatable("")
strings.__tostring = function(s) return "S:" .. s end
raise("x", "S:x")
strings.__tostring = nil
local stock = tostring
tostring = function(v) return "T:" .. stock(v) end
raise(7, "T:7")
tostring = nil
raise("x", "LuaRunException")
tostring = stock
same(T.thrown(), table.concat(expected), "descriptions")

-- Host hooks see every open of the io library, dofile and require with their modes.
local folder = os.tmpname()
os.remove(folder)
assert(os.execute("mkdir -p " .. folder .. "/first " .. folder .. "/second") == 0)
local function write(name, text)
  local file = assert(io.open(folder .. "/" .. name, "w"))
  file:write(text)
  file:close()
  return folder .. "/" .. name
end
local data, script = write("data.txt", "line\n"), write("script.lua", "return 'ran'")
same(select(2, io.open(folder .. "/missing")), folder .. "/missing: No such file or directory", "plain fopen")
T.hooks(true)
io.open(data, "a+"):close()
for _ in io.lines(data) do end
io.input(data) io.input():close()
io.output(data) io.output():close()
same(dofile(script), "ran", "dofile")
same(T.hooks(true, folder), ("%s a+\n%s r\n%s r\n%s w\n%s rb\n"):format(data, data, data, data, script), "io opens")
same(select(2, io.open(data)), data .. ": No such file or directory", "refused open")
same(select(2, pcall(io.lines, data)), "bad argument #1 to '?' (" .. data .. ": No such file or directory)", "lines")
same(select(2, pcall(dofile, script)), "cannot open " .. script .. ": No such file or directory", "refused dofile")
-- require moves past a refused candidate, for Lua and native modules.
T.hooks(false)
write("first/mod.lua", "return 'first'")
write("second/mod.lua", "return 'second'")
write("first/tqtestmod.so", "not a library")
package.path = folder .. "/first/?.lua;" .. folder .. "/second/?.lua"
package.cpath = folder .. "/first/?.so;" .. T.nativeModule:match("^(.*/)") .. "?.so"
T.hooks(true, folder .. "/first")
same(require("mod"), "second", "Lua module")
same(require("tqtestmod").version, "tqtestmod 1", "native module")
local asked = "@/first/mod.lua r\n@/second/mod.lua r\n@/second/mod.lua rb\n@/first/tqtestmod.lua r\n" ..
  "@/second/tqtestmod.lua r\n@/first/tqtestmod.so r\n# r\nload #\n"
same(T.hooks(true, "", true), (asked:gsub("@", folder):gsub("#", T.nativeModule)), "require")
package.loaded.tqtestmod, tqtestmod = nil, nil
same(select(2, pcall(require, "tqtestmod")),
  "error loading module 'tqtestmod' from file '" .. folder .. "/first/tqtestmod.so" ..
  "':\n\tcannot load library (no reason given)", "refused library")
T.hooks(false)
os.execute("rm -r " .. folder)
