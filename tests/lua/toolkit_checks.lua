-- Value checks and conversions as a Lua caller sees them, and tagged heavy userdata.
local function badArg(f, expected, got)
  return ("t:1: bad argument #1 to '%s' (%s expected, got %s)"):format(f, expected, got)
end
cases {
  -- No conversion between strings and numbers; integers must be integral and in range.
  {"checkNumber('12')", badArg("checkNumber", "number", "string")},
  {"checkString(12)", badArg("checkString", "string", "number")},
  {"checkNumber()", badArg("checkNumber", "number", "no value")},
  {"return checkNumber(1.25) .. checkString('x')", "1.25x"},
  {"checkInteger('3')", badArg("checkInteger", "number", "string")}, {"return checkInteger(3.0)", 3},
  {"return checkInteger(2^53) == 2^53 and checkInteger(-2^63) == -2^63", true},
  {"checkInteger(-2.5)", "t:1: expected integer, got -2.500000"},
  {"checkInteger(math.huge)", "t:1: expected integer, got inf"},
  {"checkInteger(2^63)", "t:1: expected integer, got 9223372036854775808.000000"},
  -- Booleans are not truthiness; heavy and light userdata are kept apart (a light NULL is one).
  {"return checkBoolean(true)", 1}, {"checkBoolean(nil)", badArg("checkBoolean", "boolean", "nil")},
  {"checkBoolean(0)", badArg("checkBoolean", "boolean", "number")},
  {"return all(checkUserdata(heavy()), checkUserdata(light(false)))", "true false"},
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
  {"return optInteger5(1, 2, 3, 4) + optInteger5(1, 2, 3, 4, nil)", 14},
  {"return optInteger5(1, 2, 3, 4, 9)", 9},
  {"optInteger5(1, 2, 3, 4, 'x')", "t:1: bad argument #5 to 'optInteger5' (number expected, got string)"},
  {"return optString() .. optBoolean(nil) .. optBoolean(false)", "default50"},
  {"optString(1)", badArg("optString", "string", "number")}, {"return optLight()", true},
  {"optLight(heavy())", badArg("optLight", "userdata", "userdata")},
  {"return all(optOthers(nil, nil))", "0.5 true true"}, {"optOthers('2')", badArg("optOthers", "number", "string")},
  {"optOthers(1, 1)", "t:1: bad argument #2 to 'optOthers' (userdata expected, got number)"},
  {"optOthers(1, nil, light(true))", "t:1: bad argument #3 to 'optOthers' (userdata expected, got userdata)"},
  -- Argument counts, indices, the located error and the toolkit's assertions.
  {"return warnParameterCount(3, 1, 2, 3, 4, 5)", 3},
  {"warnParameterCount(3, 1, 2)", "t:1: Insufficent parameters. Wanted 3, received 2."},
  {"warnParameterCount(-1)", "Assertion failed: 0 <= expectedCount"},
  {"\n errorText()", "t:2: it went wrong 3 times"},
  {"errorTextVa()", "t:1: 50% of it"},
  {"return all(normalize(-1), normalize(-2), normalize(-10000), normalize(-1, nil))", "1 0 -10000 2"},
  {"normalize(-3)", "Assertion failed: 0 <= index"}, {"return typeOfZero()", -1},
  {"typeOfZero(1)", "Assertion failed: lua_gettop( L ) == 0"},
  {"return all(equals('ab\\0c', 'ab'), equals('ab', 'ab'), equals(12, '12'))", "false true false"},
  {"equals('x', nil)", "Assertion failed: s"},
  {"return all(popNil(nil), select(2, popNil(nil)), popNil(false), popNil())", "true 0 false false 0"},
  -- Queries never raise and never convert.
  {"return probe()", "-1 no value any0 indexable0 heavy0 string0 number0 to:00-,0,0 len0"},
  {"return probe('42')", "4 string any1 indexable0 heavy0 string1 number0 to:00s,0,0 len2"},
  {"return probe(-7.9)", "3 number any1 indexable0 heavy0 string0 number1 to:00-,-7.9,-7 len0"},
  {"return probe(light(true))", "2 userdata any1 indexable0 heavy0 string0 number0 to:01-,0,0 len0"},
  {"return probe(tagged(1))", "-2 native object any1 indexable1 heavy1 string0 number0 to:10-,0,0 len0"},
  {"return probe(tagged(255))", "7 userdata any1 indexable1 heavy1 string0 number0 to:10-,0,0 len0"},
  -- Tagged heavy userdata: the trailer decides; only tag 0 is refused.
  {"return tagOf(tagged(1, 0))", 1}, {"tagged(0)", "Assertion failed: 0 < tag"},
  {"return all(tagOf(heavy(32)), tagOf(light(true)), tagOf('TqXkLua\\1'), setTag(heavy(32), 1))", "-1 -1 -1 0"},
  {"return all(toTagged(tagged(2), 1), toTagged(tagged(2), 2), isTagged(light(true), 1))", "false true false"},
  {"checkTagged(tagged(1), 1)", nil},
  {"checkTagged(light(true), 1)", badArg("checkTagged", "userdata", "userdata")},
  {"checkTagged(tagged(2), 1)", "Assertion failed: TqLuaInternal_getuserdatatag( L, index ) == tag"},
  {"checkTagged(heavy(), 1)", "Assertion failed: TqLuaInternal_getuserdatatag( L, index ) == tag"},
  {"tagged(1, -4)", "memory allocation error: block too big"},
}
-- Retagging and invalidation change only the tag byte.
local object = T.tagged(1, 16)
assert(T.setTag(object, 128) == 1 and T.tagOf(object) == 128 and T.setTag(object, 1) == 1)
T.invalidateTag(object)
assert(not T.isTagged(object, 1) and T.isTagged(object, 2) and T.probe(object):sub(1, 10) == "7 userdata")
-- Yielding is possible only without a native call boundary below.
assert(coroutine.wrap(function() return T.canYield() end)() and not T.canYield())
assert(not coroutine.wrap(function() return setmetatable({}, {__index = function() return T.canYield() end}).x end)())
assert(not coroutine.wrap(function() return select(2, pcall(T.canYield)) end)())
