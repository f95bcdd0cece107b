-- Value checks and conversions as a Lua caller sees them, and tagged heavy userdata.
local bad = "t:1: bad argument #1 to '%s' (%s expected, got %s)"
local function badArg(f, expected, got) return bad:format(f, expected, got) end

cases {
  -- No conversion between strings and numbers.
  {"return checkNumber(1.25)", 1.25}, {"checkNumber('12')", badArg("checkNumber", "number", "string")},
  {"checkNumber()", badArg("checkNumber", "number", "no value")}, {"return checkString('x')", "x"},
  {"checkString(12)", badArg("checkString", "string", "number")},
  {"checkInteger('3')", badArg("checkInteger", "number", "string")},
  -- Integers must be integral and in range.
  {"return checkInteger(3.0)", 3}, {"return checkInteger(2^53)", 2 ^ 53},
  {"return checkInteger(-2^63)", -2 ^ 63}, {"checkInteger(-2.5)", "t:1: expected integer, got -2.500000"},
  {"checkInteger(2^63)", "t:1: expected integer, got 9223372036854775808.000000"},
  {"checkInteger(math.huge)", "t:1: expected integer, got inf"},
  -- Booleans are not truthiness.
  {"return checkBoolean(true)", 1}, {"checkBoolean(nil)", badArg("checkBoolean", "boolean", "nil")},
  {"checkBoolean(0)", badArg("checkBoolean", "boolean", "number")},
  -- Heavy and light userdata are kept apart; a light NULL is a userdata.
  {"return checkUserdata(heavy())", true}, {"return checkUserdata(light(false))", false},
  {"checkUserdata('u')", badArg("checkUserdata", "userdata", "string")},
  {"return checkHeavy(tagged(1))", true},
  {"checkHeavy(light(true))", badArg("checkHeavy", "userdata", "userdata")},
  {"return checkLight(light(true))", true},
  {"checkLight(heavy())", badArg("checkLight", "userdata", "userdata")},
  {"checkAny(nil)", nil}, {"checkAny()", "t:1: bad argument #1 to 'checkAny' (value expected)"},
  -- checkType names what was expected.
  {"checkType(tagged(1), -2)", nil},
  {"checkType(heavy(), -2)", badArg("checkType", "native object", "userdata")},
  {"checkType(nil, -2, 'Widget')", badArg("checkType", "Widget", "nil")},
  {"checkType(1, 12, 'table')", badArg("checkType", "unknown type", "number")},
  {"checkType(1, 5)", badArg("checkType", "table", "number")},
  {"checkType(1, 5, 'list')", badArg("checkType", "list", "number")},
  {"checkType(tagged(1), 7, 'blob')", nil}, {"checkType({}, 5)", nil},
  -- Optional forms default only for nothing or nil.
  {"return optInteger5(1, 2, 3, 4)", 7}, {"return optInteger5(1, 2, 3, 4, 9)", 9},
  {"optInteger5(1, 2, 3, 4, 'x')", "t:1: bad argument #5 to 'optInteger5' (number expected, got string)"},
  {"optInteger5(1, 2, 3, 4, 0.5)", "t:1: expected integer, got 0.500000"},
  {"return optString()", "default"}, {"optString(1)", badArg("optString", "string", "number")},
  {"return optBoolean(nil)", 5}, {"return optBoolean(false)", 0},
  {"return optLight()", true}, {"optLight(heavy())", badArg("optLight", "userdata", "userdata")},
  -- Argument counts, indices and the located error.
  {"return warnParameterCount(3, 1, 2, 3, 4, 5)", 3}, {"return warnParameterCount(0, 1)", 0},
  {"warnParameterCount(3, 1, 2)", "t:1: Insufficent parameters. Wanted 3, received 2."},
  {"warnParameterCount(-1)", "Assertion failed: 0 <= expectedCount"},
  {"\n errorText()", "t:2: it went wrong 3 times"}, {"return normalize(-1)", 1},
  {"return normalize(-2)", 0}, {"return normalize(-10000)", -10000}, {"return normalize(-10002)", -10002},
  {"return normalize(-1, nil)", 2}, {"normalize(-3)", "Assertion failed: 0 <= index"},
  {"return typeOfZero()", -1}, {"typeOfZero(1)", "Assertion failed: lua_gettop( L ) == 0"},
  {"return equals('ab\\0c', 'ab')", false}, {"return equals('ab', 'ab')", true},
  {"return equals(12, '12')", false}, {"equals('x', nil)", "Assertion failed: s"},
  {"return select(2, popNil(nil))", 0}, {"return popNil(false)", false}, {"return popNil()", false},
  -- Queries never raise and never convert.
  {"return probe()", "-1 no value any0 indexable0 heavy0 string0 number0 to:00-,0,0 len0"},
  {"return probe('42')", "4 string any1 indexable0 heavy0 string1 number0 to:00s,0,0 len2"},
  {"return probe(-7.9)", "3 number any1 indexable0 heavy0 string0 number1 to:00-,-7.9,-7 len0"},
  {"return probe(light(true))", "2 userdata any1 indexable0 heavy0 string0 number0 to:01-,0,0 len0"},
  {"return probe(heavy())", "7 userdata any1 indexable1 heavy1 string0 number0 to:10-,0,0 len0"},
  {"return probe(tagged(1))", "-2 native object any1 indexable1 heavy1 string0 number0 to:10-,0,0 len0"},
  {"return probe({})", "5 table any1 indexable1 heavy0 string0 number0 to:00-,0,0 len0"},
  -- Tagged heavy userdata: the trailer decides, only tag 0 is refused.
  {"return tagOf(tagged(1, 0))", 1}, {"return #tostring(tagOf(tagged(255, 3)))", 3},
  {"tagged(0)", "Assertion failed: 0 < tag"}, {"return tagOf(heavy(32))", -1},
  {"return tagOf(light(true))", -1}, {"return tagOf('TqXkLua\\1')", -1}, {"return setTag(heavy(32), 1)", 0},
  {"return toTagged(tagged(2), 1)", false}, {"return toTagged(tagged(2), 2)", true},
  {"return isTagged(tagged(1), 1)", true}, {"return isTagged(light(true), 1)", false},
  {"checkTagged(tagged(1), 1)", nil},
  {"checkTagged(light(true), 1)", badArg("checkTagged", "userdata", "userdata")},
  {"checkTagged(nil, 1)", badArg("checkTagged", "userdata", "nil")},
  {"checkTagged(tagged(2), 1)", "Assertion failed: TqLuaInternal_getuserdatatag( L, index ) == tag"},
  {"checkTagged(heavy(), 1)", "Assertion failed: TqLuaInternal_getuserdatatag( L, index ) == tag"},
  {"tagged(1, -4)", "memory allocation error: block too big"},
}

-- Retagging and invalidation change only the tag byte.
local object = T.tagged(1, 16)
same(T.setTag(object, 128), 1, "setTag")
same(T.tagOf(object), 128, "retagged")
T.setTag(object, 1)
T.invalidateTag(object)
same(T.isTagged(object, 1), false, "invalidated is no native object")
same(T.isTagged(object, 2), true, "invalidated")
same(T.probe(object):sub(1, 10), "7 userdata", "invalidated type")
local plain = T.heavy(8)
T.invalidateTag(plain)
same(T.tagOf(plain), -1, "invalidating an untagged userdata does nothing")

-- Yielding is possible only without a native call boundary below.
same(coroutine.wrap(function() return T.canYield() end)(), true, "in a coroutine")
same(coroutine.wrap(function() return setmetatable({}, {__index = function() return T.canYield() end}).x end)(),
  false, "in a metamethod")
same(coroutine.wrap(function() return select(2, pcall(T.canYield)) end)(), false, "in pcall")
same(T.canYield(), false, "in the main state")
