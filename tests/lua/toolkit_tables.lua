-- Named integers, registry caches, weak tables, method lookup and table field accessors.
local function badField(expected, got)
  return ("t:1: bad argument #-1 to 'field' (%s expected, got %s)"):format(expected, got)
end
local index42 = "setmetatable({}, {__index = function() return 42 end})"
local unknownKey = 't:1: Attempted to access an invalidated native object proxy "< unknown >" for key "%s"'
cases {
  -- Named integers (Letter: a = 1, b = 2, first = 1).
  {"return named('b')", 2}, {"return nameOf(2)", "b"}, {"return nameOf(1)", "first"},
  {"return optNamed()", -7}, {"return optNamed(nil)", -7}, {"return optNamed('b')", 2},
  {"nameOf(3)", "t:1: Could not push named integer of type 'Letter'. Unknown value. (3)"},
  {"named('c')", "t:1: Error reading named integer of type 'Letter', got c"},
  {"named(2)", "t:1: Error reading named integer of type 'Letter', expected string got number"},
  {"optNamed(2)", "t:1: Error reading named integer of type 'Letter', expected string got number"},
  {"namedPastTop()", "t:1: Error reading named integer of type 'Letter', expected string got no value"},
  {"named('a', 'unnamed')", "t:1: Error reading named integer of type '< unknown >', got a"},
  {"nameOf(1, 'unnamed')", "t:1: Could not push named integer of type '< unknown >'. Unknown value. (1)"},
  {"named('a', 'none')", "Assertion failed: udRef != 0"}, {"return next(namedTable('empty'))", nil},
  {"return all(byName('b'))", "1 2"}, {"return byName('B')", 0}, {"return byName('a', 'none')", 0},
  {"return byName('a', 'empty')", 0}, {"return byName(nil)", 0},
  {"return all(namedNoThrow('b'))", "2  2"}, {"return all(namedNoThrow(nil))", "-7  2"},
  {"return all(namedNoThrow('c'))", "-7 Error reading named integer of type 'Letter', got 'c'\n 2"},
  {"return all(namedNoThrow(2))", "-7 Error reading named integer of type 'Letter', got value of type number\n 2"},
  {"return all(namedNoThrow('c', 'unnamed'))", "-7 Error reading named integer of type '< unknown >', got 'c'\n 2"},
  -- Caches are keyed by name and address; the first lookup reports the creation.
  {"return cached('opt', 'lazy', 0)", 0}, {"return type(debug.getregistry().lazy)", "table"},
  {"return cached('plain', 'c', 0)", 1}, {"return cached('plain', 'c', 0)", 0},
  {"return select(2, cached('plain', 'c', 0)) == select(2, cached('opt', 'c', 0))", true},
  {"return select(2, cached('plain', 'c', 0)) ~= select(2, cached('plain', 'c', 1))", true},
  {"cached('plain', 'c', nil)", "Assertion failed: udRef != 0"},
  {"cached('opt', 'c', nil)", "Assertion failed: udRef != 0"},
  {"return getmetatable(select(2, cached('v', 'w', 0))).__mode", "v"},
  {"return getmetatable(select(2, cached('k', 'w', 0))).__mode", "v"},  -- made before
  {"return getmetatable(select(2, cached('kv', 'w', 1))).__mode", "kv"},
  {"return getmetatable(select(2, cached('k', 'x', 0))).__mode", "k"},
  {"return getmetatable(weak(true, false)) == getmetatable(weak(true, false))", true},
  {"return getmetatable(weak(true, false)).__mode .. getmetatable(weak(false, true)).__mode", "kv"},
  {"return getmetatable(weak(true, true)).__mode", "kv"}, {"return getmetatable(weak(false, false))", nil},
  -- Literals are interned per address, whatever length is asked later.
  {"return literal(0, 5) .. literal(0, 2) .. literal(1, 3)", "hellohellohel"},
  {"return #literalMacro()", 6},
  {"return literal(nil, 0)", ""}, {"return debug.getregistry()[light(false)]", nil},
  -- Method lookup: the metatable's method table wins; plain lookups keep callable kinds.
  {"return all(getMethod(setmetatable({}, {__hasmethods = {size = 3}, __index = {size = 1}}), 'size'))", "1 3"},
  {"return all(getMethod(setmetatable({}, {__hasmethods = {}}), 'x'))", "0"},
  {"return all(getMethod(" .. index42 .. ", 'x'))", "0"},
  {"return select(2, getMethod('abc', 'upper')) == string.upper", true},
  {"return all(getMethod(nil, 'x'))", "0"},
  {"getMethod({}, 12)", "t:1: bad argument #-1 to 'getMethod' (string expected, got number)"},
  {"return all(getMethodByName(" .. index42 .. ", 'x'))", "1 42"},
  {"return all(getMethodByName(nil, 'x'), getMethodByName({}, 'x'))", "0 0"},
  {"return all(getMethodByName(setmetatable({}, {__hasmethods = {size = 3}}), 'size'))", "1 3"},
  -- Lookups with and without metamethods.
  {"return getTable(" .. index42 .. ", 'a') .. deref(" .. index42 .. ", 'b')", "4242"},
  {"return getTable(setmetatable({}, {__index = error}), nil)", nil}, {"return getTable(nil, 'a')", nil},
  {"return rawDeref(setmetatable({}, {__index = error}), 'y')", nil}, {"return rawDeref({x = 1}, 'x')", 1},
  {"rawDeref('s', 'x')", "Assertion failed: (lua_type(L, (-2)) == 5)"},
  {"return rawDerefIndexed({'a', 'b'})", "b"},
  {"rawDerefIndexed(heavy())", "Assertion failed: (lua_type(L, (-1)) == 5)"}, {"return rawGetUD({})", nil},
  {"rawGetUD(1)", "Assertion failed: (lua_type(L, (source)) == 5)"},
  {"addFunctions({}, 1)", "Assertion failed: key"}, {"addFunctions({}, 2)", "Assertion failed: function"},
  {"return select('#', chain(1, 2, 3)) .. ':' .. chain(1, 2, 3)", "1:1"},
  {"return select('#', chain())", 1},
  {"return all(shallowCopy('text'))", "1 text"}, {"return all(shallowCopy(heavy()))", "0"},
  {"return all(shallowCopy(coroutine.create(function() end)))", "0"}, {"return all(shallowCopy())", "0"},
  -- Invalidated proxies refuse every access.
  {"local p = heavy() invalidate(p) return p.name", unknownKey:format("name")},
  {"local p = {} invalidate(p) p[1.5] = 1", unknownKey:format("1.5")},
  {"local p = heavy() invalidate(p) return p[true]", unknownKey:format("< unknown >")},
  {"local p = heavy() invalidate(p) return tostring(p)", 'Invalidated native object proxy "< unknown >"'},
  {"local p, q = heavy(), {} invalidate(p) invalidate(q) return getmetatable(p) == getmetatable(q)", true},
  -- Field accessors: strict readers; the argument error names the slot, -1.
  {"return field('optString', {}, 'name', 'anonymous') .. field('optString', {name = 'x'}, 'name')", "anonymousx"},
  {"field('optString', {name = 5}, 'name')", badField("string", "number")},
  {"return field('optNumberAtIndex', nil, 2, 3) + field('optNumberAtIndex', {[2] = 4}, 2)", 7},
  {"field('optNumberAtIndex', {'3'}, 1)", badField("number", "string")},
  {"return field('optBoolean', {}, 'strict', 1) .. field('optBoolean', {strict = false}, 'strict')", "10"},
  {"field('optBoolean', {strict = 'yes'}, 'strict')", badField("boolean", "string")},
  {"return field('checkNumberAtIndex', setmetatable({}, {__index = {4}}), 1)", 4},
  {"field('checkNumberAtIndex', {}, 1)", badField("number", "nil")},
  {"return field('checkString', {s = 'text'}, 's')", "text"},
  {"field('checkString', {s = 1}, 's')", badField("string", "number")},
  {"field('checkBoolean', {flag = 1}, 'flag')", badField("boolean", "number")},
  {"field('checkString', 5, 's')", "attempt to index a number value"},
  {"field('hasKey', {}, nil)", "Assertion failed: key"},
  {"return all(field('hasString', {n = 5}, 'n'))", "false untouched"},
  {"return all(field('hasString', {s = 'x'}, 's'))", "true x"},
  {"return all(field('hasNumberAtIndex', {'5'}, 1))", "false -1"},
  {"return all(field('hasNumberAtIndex', {1, 2}, 2))", "true 2"},
  {"return all(field('hasBoolean', {z = 0}, 'z'))", "false -1"},
  {"return all(field('hasBoolean', {b = false}, 'b'))", "true 0"},
  {"return all(field('hasKey', {b = false}, 'b'), field('hasKey', nil, 'b'))", "true false"},
  {"return all(field('isString', {s = 's'}, 's'), field('isString', {n = 5}, 'n'))", "true false"},
  {"return all(field('isNumberAtIndex', {5}, 1), field('isNumberAtIndex', {'5'}, 1))", "true false"},
  {"return field('isNumberAtIndex', nil, 1)", false},
  {"return all(field('isBoolean', {b = false}, 'b'), field('isBoolean', {z = 0}, 'z'))", "true false"},
  {"return all(field('toString', {n = 5}, 'n'), field('toNumberAtIndex', {'5'}, 1))", "nil 0"},
  {"return field('toNumberAtIndex', {1, 2}, 2)", 2},
  {"return all(field('toBoolean', {z = 0}, 'z'), field('toBoolean', {e = ''}, 'e'), field('toBoolean', {b = false}, 'b'), "
    .. "field('toBoolean', nil, 'b'))", "1 1 0 0"},
  {"field('setString', {}, nil, 'x')", "table index is nil"},
  {"field('setFrom', {}, nil)", "Assertion failed: key"},
}

-- Writers assign with metamethods; references.
local t, seen = {gone = 1}, {}
T.field("setString", t, "s", "text") T.field("setString", t, "gone", nil) T.field("setNumberAtIndex", t, 2, 7)
T.field("setBoolean", t, "b", 5) T.field("setFrom", t, "f", "kept")
assert(t.s == "text" and t.gone == nil and t[2] == 7 and t.b == true and t.f == "kept")
local proxy = setmetatable({}, {__newindex = function(_, k, v) seen[k] = v end})
T.field("setBoolean", proxy, "n", 1)
assert(seen.n == true and rawget(proxy, "n") == nil)
local refs = {}
local ref = T.field("ref", refs, nil, "kept")
assert(ref > 0 and refs[ref] == "kept" and T.field("ref", refs, nil, nil) == -1)
T.field("unref", refs, -2) T.field("unref", refs, -1) T.field("unref", refs, ref)
same(refs[0], ref, "a freed reference heads the free list")
-- A shallow copy keeps the metatable and shares nested tables; added functions are assigned
-- through __newindex, in list order.
local inner, meta = {}, {__index = function() return "meta" end}
local source = setmetatable({1, 2, inner = inner, name = "n"}, meta)
local count, copied = T.shallowCopy(source)
assert(count == 1 and copied ~= source and copied.inner == inner and getmetatable(copied) == meta)
same(copied[1] + copied[2] .. copied.name .. copied.other, "3nmeta", "copy")
local order = {}
local target = setmetatable({}, {__newindex = function(tbl, k, v) order[#order + 1] = k rawset(tbl, k, v) end})
T.addFunctions(target, 0) T.addFunctions(target, nil)
assert(table.concat(order, ",") == "one,two" and target.two() == 42)
-- A lookup table is built once per state and kept: an entry added to it stays.
T.namedTable().half = 1.5
same(select(2, T.namedNoThrow("half")), "Integer value expected for named integer of type 'Letter'.\n", "fraction")
-- Weak-valued tables let their values go.
local w = T.weak(false, true)
w[1], w[2] = {}, "kept"
collectgarbage()
assert(w[1] == nil and w[2] == "kept")
