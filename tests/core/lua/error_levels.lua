-- Where error messages point: error levels, assert, and the run-time errors of the VM and
-- the libraries.
local show = dofile("support/show.lua")
local function raiseAt(level) error("at level " .. level, level) end
local function caller(level) raiseAt(level) end
local function outer(level) caller(level) end
for _, level in ipairs({0, 1, 2, 3, 4, 50}) do show.check("level " .. level, outer, level) end
show.check("level 2 when the caller is C", raiseAt, 2)

show.run {
  "error('text', '2')", "error('text', {})", "assert(false)", "assert(nil, 'assert message')",
  "assert(false, 42)", "assert(false, {})", "return assert(1, 2, 3)",
  -- Run-time errors name the variable involved.
  "undefinedGlobal()", "local t = {} t.missing()", "local t = {} t:method()", "local f; f()",
  "local up; (function() up() end)()", "return Global.field", "local t = {} return t.a.b",
  "local n = 1; return n.x", "local up; (function() up.x = 1 end)()", "local x; return x + 1",
  "local t = {} return t.count * 2", "return 'abc' + 1", "return '10' + 1, '0x10' * 1", "return -{}",
  "local n = 5; return #n", "return 'a' .. {}", "local up; return (function() return 'a' .. up end)()",
  "return true .. ''", "local up; return (function() return 1 < up end)()", "return {} < {}",
  "return 1 <= '2'", "local t = {} t[nil] = 1", "local t = {} t[0 / 0] = 1", "for i = 'a', 2 do end",
  "for i = 1, {} do end", "for i = 1, 2, nil do end",
  -- Library argument checks.
  "string.rep()", "return ('x'):rep('many')", "collectgarbage('sometimes')", "setmetatable({}, 1)",
  "local locked = setmetatable({}, {__metatable = 'locked'}) return getmetatable(locked), setmetatable(locked, {})",
  "string.format('%y', 1)", "string.format('%d')", "string.find('abc', '[a')", "string.gsub('abc', '(a', '')",
  "string.gsub('abc', 'a', '%2')", "tonumber('10', 99)", "return loadstring('x = = 1', '=chunk')",
  "return loadstring(\"x = 'abc\", 'chunk')", "return load(function() error('reader failed') end)",
  "return load(function() return {} end)", "dofile('no/such/file.lua')",
  "return (select(2, pcall(require, 'no_such_module'))):match('^[^\\n]*')",
}
