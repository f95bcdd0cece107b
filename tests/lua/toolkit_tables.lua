-- Named integers, registry caches, weak tables, method lookup and table field accessors.
local badField = "t:1: bad argument #-1 to 'field' (%s expected, got %s)"

cases {
  -- Named integers (Letter: a = 1, b = 2, first = 1).
  {"return named('b')", 2}, {"return nameOf(2)", "b"}, {"return nameOf(1)", "first"},
  {"return named('a') + named('first')", 2},
  {"return optNamed(nil)", -7}, {"return optNamed()", -7}, {"return optNamed('b')", 2},
  {"nameOf(3)", "t:1: Could not push named integer of type 'Letter'. Unknown value. (3)"},
  {"named('c')", "t:1: Error reading named integer of type 'Letter', got c"},
  {"named(2)", "t:1: Error reading named integer of type 'Letter', expected string got number"},
  {"optNamed(2)", "t:1: Error reading named integer of type 'Letter', expected string got number"},
  {"namedPastTop()", "t:1: Error reading named integer of type 'Letter', expected string got no value"},
  {"named('a', 'unnamed')", "t:1: Error reading named integer of type '< unknown >', got a"},
  {"nameOf(1, 'unnamed')", "t:1: Could not push named integer of type '< unknown >'. Unknown value. (1)"},
  {"named('a', 'none')", "Assertion failed: udRef != 0"},
  {"return next(namedTable('empty'))", nil},
  {"return table.concat({byName('b')}, ' ')", "1 2"}, {"return byName('B')", 0}, {"return byName('')", 0},
  {"return byName('a', 'none')", 0}, {"return byName('a', 'empty')", 0}, {"return byName(nil)", 0},
  {"return table.concat({namedNoThrow('b')}, '|')", "2||2"},
  {"return table.concat({namedNoThrow(nil)}, '|')", "-7||2"},
  {"return table.concat({namedNoThrow('c')}, '|')", "-7|Error reading named integer of type 'Letter', got 'c'\n|2"},
  {"return table.concat({namedNoThrow(2)}, '|')",
   "-7|Error reading named integer of type 'Letter', got value of type number\n|2"},
  {"return table.concat({namedNoThrow('c', 'unnamed')}, '|')",
   "-7|Error reading named integer of type '< unknown >', got 'c'\n|2"},
  -- Caches are keyed by name and address; the first lookup reports the creation.
  {"return cached('opt', 'lazy', 0)", 0}, {"return type(debug.getregistry().lazy)", "table"},
  {"return cached('plain', 'c', 0)", 1}, {"return cached('plain', 'c', 0)", 0},
  {"return select(2, cached('plain', 'c', 0)) == select(2, cached('opt', 'c', 0))", true},
  {"return select(2, cached('plain', 'c', 0)) ~= select(2, cached('plain', 'c', 1))", true},
  {"cached('plain', 'c', nil)", "Assertion failed: udRef != 0"},
  {"cached('opt', 'c', nil)", "Assertion failed: udRef != 0"},
  {"return getmetatable(select(2, cached('v', 'w', 0))).__mode", "v"},
  {"return getmetatable(select(2, cached('k', 'w', 0))).__mode", "v"},  -- already made
  {"return getmetatable(select(2, cached('kv', 'w', 1))).__mode", "kv"},
  {"return getmetatable(select(2, cached('k', 'other', 0))).__mode", "k"},
  {"return getmetatable(weak(true, false)) == getmetatable(weak(true, false))", true},
  {"return getmetatable(weak(true, false)).__mode .. getmetatable(weak(false, true)).__mode", "kv"},
  {"return getmetatable(weak(true, true)).__mode", "kv"}, {"return getmetatable(weak(false, false))", nil},
  -- Literals are interned per address, whatever length is asked later.
  {"return literal(0, 5)", "hello"}, {"return literal(0, 2)", "hello"}, {"return literal(1, 3)", "hel"},
  {"return #literalMacro()", 6}, {"return literal(nil, 0)", ""}, {"return debug.getregistry()[light(false)]", nil},
  -- Method lookup: the metatable's method table wins; plain lookups keep callable kinds.
  {"return getMethod(setmetatable({}, {__hasmethods = {size = 3}, __index = {size = 1}}), 'size')", 1},
  {"return select(2, getMethod(setmetatable({}, {__hasmethods = {size = 3}}), 'size'))", 3},
  {"return table.concat({getMethod(setmetatable({}, {__hasmethods = {}}), 'x')}, ',')", "0"},
  {"return table.concat({getMethod(setmetatable({}, {__index = function() return 42 end}), 'x')}, ',')", "0"},
  {"return select(2, getMethod(setmetatable({}, {__index = function() return print end}), 'x')) == print", true},
  {"return select(2, getMethod('abc', 'upper')) == string.upper", true},
  {"return getMethod(nil, 'x')", 0},
  {"getMethod({}, 12)", "t:1: bad argument #-1 to 'getMethod' (string expected, got number)"},
  {"return select(2, getMethodByName(setmetatable({}, {__index = function() return 42 end}), 'x'))", 42},
  {"return select(2, getMethodByName(setmetatable({}, {__hasmethods = {size = 3}}), 'size'))", 3},
  {"return select('#', getMethodByName(nil, 'x'))", 1}, {"return select('#', getMethodByName({}, 'x'))", 1},
  -- Lookups with and without metamethods.
  {"return getTable(setmetatable({}, {__index = function(_, k) return k .. '!' end}), 'a')", "a!"},
  {"return getTable(setmetatable({}, {__index = error}), nil)", nil}, {"return getTable(nil, 'a')", nil},
  {"return deref(setmetatable({}, {__index = function(_, k) return k .. '!' end}), 'b')", "b!"},
  {"return rawDeref(setmetatable({}, {__index = error}), 'y')", nil}, {"return rawDeref({x = 1}, 'x')", 1},
  {"rawDeref('s', 'x')", "Assertion failed: (lua_type(L, (-2)) == 5)"},
  {"return rawDerefIndexed({'a', 'b'})", "b"},
  {"rawDerefIndexed(heavy())", "Assertion failed: (lua_type(L, (-1)) == 5)"},
  {"return rawGetUD({})", nil}, {"rawGetUD(1)", "Assertion failed: (lua_type(L, (source)) == 5)"},
  {"addFunctions({}, 1)", "Assertion failed: key"}, {"addFunctions({}, 2)", "Assertion failed: function"},
  {"return select('#', chain(1, 2, 3)) .. ':' .. chain(1, 2, 3)", "1:1"}, {"return select('#', chain())", 1},
  -- Shallow copies share nested tables and the metatable; some kinds are not copied.
  {"return select(2, shallowCopy('text'))", "text"}, {"return shallowCopy(heavy())", 0},
  {"return shallowCopy(coroutine.create(function() end))", 0}, {"return shallowCopy()", 0},
  -- Invalidated proxies refuse every access.
  {"local p = heavy() invalidate(p) return p.name",
   't:1: Attempted to access an invalidated native object proxy "< unknown >" for key "name"'},
  {"local p = {} invalidate(p) p[1.5] = 1",
   't:1: Attempted to access an invalidated native object proxy "< unknown >" for key "1.5"'},
  {"local p = heavy() invalidate(p) return p[true]",
   't:1: Attempted to access an invalidated native object proxy "< unknown >" for key "< unknown >"'},
  {"local p = heavy() invalidate(p) return tostring(p)", 'Invalidated native object proxy "< unknown >"'},
  {"local p, q = heavy(), {} invalidate(p) invalidate(q) return getmetatable(p) == getmetatable(q)", true},
  -- Field accessors: strict readers, the argument error names slot -1.
  {"return field('optString', {}, 'name', 'anonymous')", "anonymous"},
  {"return field('optString', {name = 'x'}, 'name')", "x"},
  {"field('optString', {name = 5}, 'name')", badField:format("string", "number")},
  {"field('optStringAtIndex', {5}, 1)", badField:format("string", "number")},
  {"return field('optNumber', nil, 'n', 3)", 3}, {"return field('optNumberAtIndex', {[2] = 4}, 2)", 4},
  {"field('optNumber', {n = '3'}, 'n')", badField:format("number", "string")},
  {"return field('optBoolean', {}, 'strict', 1)", 1}, {"return field('optBoolean', {strict = false}, 'strict')", 0},
  {"field('optBoolean', {strict = 'yes'}, 'strict')", badField:format("boolean", "string")},
  {"return field('checkNumber', setmetatable({}, {__index = {size = 4}}), 'size')", 4},
  {"field('checkNumber', {}, 'size')", badField:format("number", "nil")},
  {"field('checkNumberAtIndex', {'4'}, 1)", badField:format("number", "string")},
  {"return field('checkString', {s = 'text'}, 's')", "text"},
  {"field('checkStringAtIndex', {}, 1)", badField:format("string", "nil")},
  {"field('checkBoolean', {flag = 1}, 'flag')", badField:format("boolean", "number")},
  {"field('checkNumber', 5, 'size')", "attempt to index a number value"},
  {"field('hasKey', {}, nil)", "Assertion failed: key"},
  {"return all(field('hasString', {n = 5}, 'n'))", "false untouched"},
  {"return all(field('hasString', {s = 'x'}, 's'))", "true x"},
  {"return all(field('hasStringAtIndex', {'first'}, 1))", "true first"},
  {"return all(field('hasNumber', {ns = '5'}, 'ns'))", "false -1"},
  {"return all(field('hasNumberAtIndex', {1, 2}, 2))", "true 2"},
  {"return all(field('hasBoolean', {zero = 0}, 'zero'))", "false -1"},
  {"return all(field('hasBoolean', {b = false}, 'b'))", "true 0"},
  {"return field('hasKey', {b = false}, 'b')", true}, {"return field('hasKey', nil, 'b')", false},
  {"return field('isString', {s = 's'}, 's')", true}, {"return field('isString', {n = 5}, 'n')", false},
  {"return field('isStringAtIndex', {'s'}, 1)", true}, {"return field('isNumber', {ns = '5'}, 'ns')", false},
  {"return field('isNumberAtIndex', {5}, 1)", true}, {"return field('isNumberAtIndex', nil, 1)", false},
  {"return field('isBoolean', {b = false}, 'b')", true}, {"return field('isBoolean', {z = 0}, 'z')", false},
  {"return field('toString', {n = 5}, 'n')", nil}, {"return field('toStringAtIndex', {'first'}, 1)", "first"},
  {"return field('toNumber', {ns = '5'}, 'ns')", 0}, {"return field('toNumberAtIndex', {1, 2}, 2)", 2},
  {"return field('toBoolean', {zero = 0}, 'zero')", 1}, {"return field('toBoolean', {e = ''}, 'e')", 1},
  {"return field('toBoolean', {b = false}, 'b')", 0}, {"return field('toBoolean', nil, 'b')", 0},
  {"field('setString', {}, nil, 'x')", "table index is nil"}, {"field('setFrom', {}, nil)", "Assertion failed: key"},
}

-- Writers assign with metamethods and leave the stack as it was.
local t = {gone = 1}
T.field("setString", t, "s", "text")
T.field("setStringAtIndex", t, 1, "first")
T.field("setString", t, "gone", nil)
T.field("setNumber", t, "n", 2.5)
T.field("setNumberAtIndex", t, 2, 7)
T.field("setBoolean", t, "b", 5)
T.field("setFrom", t, "f", "kept")
assert(t.s == "text" and t[1] == "first" and t.gone == nil and t.n == 2.5 and t[2] == 7 and t.b == true)
same(t.f, "kept", "setFrom")
local seen = {}
local proxy = setmetatable({}, {__newindex = function(_, k, v) seen[k] = v end})
T.field("setNumber", proxy, "n", 1)
assert(seen.n == 1 and rawget(proxy, "n") == nil)

-- References: nil gives Lua's nil reference, -2 is ignored, a freed one heads the free list.
local refs = {}
local ref = T.field("ref", refs, nil, "kept")
assert(ref > 0 and refs[ref] == "kept")
same(T.field("ref", refs, nil, nil), -1, "nil reference")
T.field("unref", refs, -2)
T.field("unref", refs, -1)
T.field("unref", refs, ref)
same(refs[0], ref, "free list")

-- A shallow copy keeps the metatable and shares nested tables.
local inner, meta = {}, {__index = function() return "meta" end}
local source = setmetatable({1, 2, inner = inner, name = "n"}, meta)
local count, copied = T.shallowCopy(source)
assert(count == 1 and copied ~= source and copied.inner == inner and getmetatable(copied) == meta)
same(copied[1] + copied[2] .. copied.name .. copied.other, "3nmeta", "copy")

-- Added functions are assigned through __newindex, in list order.
local order = {}
local target = setmetatable({}, {__newindex = function(tbl, k, v) order[#order + 1] = k rawset(tbl, k, v) end})
T.addFunctions(target, 0)
T.addFunctions(target, nil)
same(table.concat(order, ","), "one,two", "added")
same(target.two(), 42, "added function")

-- A lookup table is built once per state: an entry added later stays, the record is not reread.
T.namedTable().half = 1.5
same(select(2, T.namedNoThrow("half")), "Integer value expected for named integer of type 'Letter'.\n", "fraction")

-- Weak-valued tables let their values go.
local w = T.weak(false, true)
w[1], w[2] = {}, "kept"
collectgarbage()
assert(w[1] == nil and w[2] == "kept")
