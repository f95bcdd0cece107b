// Table field accessors as native functions reading option tables meet them: called from
// Lua, every member by name and by index, with the texts of their refusals.
#include "support/lua_fixture.h"

namespace {

using tqtest::eval;
using tqtest::run;

// Reader arguments (table, key, ...): a number key selects the AtIndex member.
bool byIndex(lua_State *L) { return lua_type(L, 2) == LUA_TNUMBER; }
int32_t indexOf(lua_State *L) { return static_cast<int32_t>(lua_tointeger(L, 2)); }
const char *keyOf(lua_State *L) { return lua_tostring(L, 2); }

void registerReaders(lua_State *L) {
  lua_register(L, "hasString", [](lua_State *L) {
    const char *out = "untouched";
    const int has = byIndex(L) ? TqLuaTable_hasStringAtIndex(L, 1, indexOf(L), &out)
                               : TqLuaTable_hasString(L, 1, keyOf(L), &out);
    lua_pushboolean(L, has);
    lua_pushstring(L, out);
    return 2;
  });
  lua_register(L, "hasNumber", [](lua_State *L) {
    lua_Number out = 99;
    const int has = byIndex(L) ? TqLuaTable_hasNumberAtIndex(L, 1, indexOf(L), &out)
                               : TqLuaTable_hasNumber(L, 1, keyOf(L), &out);
    lua_pushboolean(L, has);
    lua_pushnumber(L, out);
    return 2;
  });
  lua_register(L, "hasBoolean", [](lua_State *L) {
    int out = 7;
    lua_pushboolean(L, TqLuaTable_hasBoolean(L, 1, keyOf(L), &out));
    lua_pushinteger(L, out);
    return 2;
  });
  lua_register(L, "hasKey", [](lua_State *L) {
    lua_pushboolean(L, TqLuaTable_hasKey(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "isString", [](lua_State *L) {
    lua_pushboolean(L, byIndex(L) ? TqLuaTable_isStringAtIndex(L, 1, indexOf(L))
                                  : TqLuaTable_isString(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "isNumber", [](lua_State *L) {
    lua_pushboolean(L, byIndex(L) ? TqLuaTable_isNumberAtIndex(L, 1, indexOf(L))
                                  : TqLuaTable_isNumber(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "isBoolean", [](lua_State *L) {
    lua_pushboolean(L, TqLuaTable_isBoolean(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "toString", [](lua_State *L) {
    lua_pushstring(L, byIndex(L) ? TqLuaTable_toStringAtIndex(L, 1, indexOf(L))
                                 : TqLuaTable_toString(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "toNumber", [](lua_State *L) {
    lua_pushnumber(L, byIndex(L) ? TqLuaTable_toNumberAtIndex(L, 1, indexOf(L))
                                 : TqLuaTable_toNumber(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "toBoolean", [](lua_State *L) {
    lua_pushinteger(L, TqLuaTable_toBoolean(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "optString", [](lua_State *L) {
    const char *def = lua_tostring(L, 3);
    lua_pushstring(L, byIndex(L) ? TqLuaTable_optStringAtIndex(L, 1, indexOf(L), def)
                                 : TqLuaTable_optString(L, 1, keyOf(L), def));
    return 1;
  });
  lua_register(L, "optNumber", [](lua_State *L) {
    const lua_Number def = lua_tonumber(L, 3);
    lua_pushnumber(L, byIndex(L) ? TqLuaTable_optNumberAtIndex(L, 1, indexOf(L), def)
                                 : TqLuaTable_optNumber(L, 1, keyOf(L), def));
    return 1;
  });
  lua_register(L, "optBoolean", [](lua_State *L) {
    lua_pushinteger(L, TqLuaTable_optBoolean(L, 1, keyOf(L), static_cast<int>(lua_tointeger(L, 3))));
    return 1;
  });
  lua_register(L, "checkString", [](lua_State *L) {
    lua_pushstring(L, byIndex(L) ? TqLuaTable_checkStringAtIndex(L, 1, indexOf(L))
                                 : TqLuaTable_checkString(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "checkNumber", [](lua_State *L) {
    lua_pushnumber(L, byIndex(L) ? TqLuaTable_checkNumberAtIndex(L, 1, indexOf(L))
                                 : TqLuaTable_checkNumber(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "checkBoolean", [](lua_State *L) {
    lua_pushinteger(L, TqLuaTable_checkBoolean(L, 1, keyOf(L)));
    return 1;
  });
  lua_register(L, "readNullKey", [](lua_State *L) {
    TqLuaTable_hasKey(L, 1, nullptr);
    return 0;
  });
}

// Writer arguments (table, key, value): a number key selects the AtIndex member.
void registerWriters(lua_State *L) {
  lua_register(L, "setString", [](lua_State *L) {
    if (byIndex(L)) {
      TqLuaTable_setStringAtIndex(L, 1, indexOf(L), lua_tostring(L, 3));
    } else {
      TqLuaTable_setString(L, 1, keyOf(L), lua_tostring(L, 3));
    }
    return 0;
  });
  lua_register(L, "setNumber", [](lua_State *L) {
    if (byIndex(L)) {
      TqLuaTable_setNumberAtIndex(L, 1, indexOf(L), lua_tonumber(L, 3));
    } else {
      TqLuaTable_setNumber(L, 1, keyOf(L), lua_tonumber(L, 3));
    }
    return 0;
  });
  lua_register(L, "setBoolean", [](lua_State *L) {
    TqLuaTable_setBoolean(L, 1, keyOf(L), lua_toboolean(L, 3));
    return 0;
  });
  lua_register(L, "setFrom", [](lua_State *L) {
    TqLuaTable_setFrom(L, 1, keyOf(L), 3);
    return 0;
  });
  // ref(table, value) -> the reference; unref(table, reference)
  lua_register(L, "ref", [](lua_State *L) {
    lua_settop(L, 2);
    lua_pushinteger(L, TqLuaTable_ref(L, 1));
    return 1;
  });
  lua_register(L, "unref", [](lua_State *L) {
    TqLuaTable_unref(L, 1, static_cast<int>(lua_tointeger(L, 2)));
    return 0;
  });
  lua_register(L, "refOnFullStack", [](lua_State *L) {
    luaL_checkstack(L, 7997, "test");
    lua_settop(L, 7997);
    TqLuaTable_ref(L, 1);
    return 0;
  });
}

class TableFieldsTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    registerReaders(L);
    registerWriters(L);
    // configure(options): an option table read the way native code reads one.
    lua_register(L, "configure", [](lua_State *L) {
      const char *name = TqLuaTable_optString(L, 1, "name", "anonymous");
      const lua_Number size = TqLuaTable_checkNumber(L, 1, "size");
      const int verbose = TqLuaTable_toBoolean(L, 1, "verbose");
      const int strict = TqLuaTable_optBoolean(L, 1, "strict", 1);
      lua_pushfstring(L, "%s %f %d %d", name, size, verbose, strict);
      return 1;
    });
    ASSERT_EQ(run(L, R"lua(t = {s = "text", n = 5, ns = "5", b = false, zero = 0, empty = "", "first", 2})lua"), "");
  }
};

TEST_F(TableFieldsTest, OptionTableReadByANativeFunction) {
  EXPECT_EQ(eval(L, "configure({size = 3})"), "anonymous 3 0 1");
  EXPECT_EQ(eval(L, "configure({size = 3, name = 'x', verbose = 0, strict = false})"), "x 3 1 0");
  EXPECT_EQ(eval(L, "configure(setmetatable({}, {__index = {size = 4, name = 'inherited'}}))"),
            "inherited 4 0 1");
  EXPECT_EQ(run(L, "configure({size = 3, name = 5})"),
            "test:1: bad argument #-1 to 'configure' (string expected, got number)");
  EXPECT_EQ(run(L, "configure({size = '3'})"),
            "test:1: bad argument #-1 to 'configure' (number expected, got string)");
  EXPECT_EQ(run(L, "configure({})"), "test:1: bad argument #-1 to 'configure' (number expected, got nil)");
  EXPECT_EQ(run(L, "configure(nil)"), "test:1: bad argument #-1 to 'configure' (number expected, got nil)");
  EXPECT_EQ(run(L, "configure({size = 1, strict = 'yes'})"),
            "test:1: bad argument #-1 to 'configure' (boolean expected, got string)");
  EXPECT_EQ(run(L, "configure(5)"), "attempt to index a number value");
}

TEST_F(TableFieldsTest, HasReadersNeverConvert) {
  EXPECT_EQ(run(L, R"lua(
    local has, out = hasString(t, "s")
    assert(has and out == "text")
    has, out = hasString(t, "n")
    assert(not has and out == "untouched")
    has, out = hasString(t, 1)
    assert(has and out == "first")
    has, out = hasNumber(t, "ns")
    assert(not has and out == 99)
    has, out = hasNumber(t, 2)
    assert(has and out == 2)
    has, out = hasNumber(t, 3)
    assert(not has and out == 99)
    has, out = hasBoolean(t, "b")
    assert(has and out == 0)
    has, out = hasBoolean(t, "zero")
    assert(not has and out == 7)
    assert(hasKey(t, "b") and hasKey(t, "zero") and not hasKey(t, "missing"))
  )lua"), "");
}

TEST_F(TableFieldsTest, IsAndToReaders) {
  EXPECT_EQ(run(L, R"lua(
    assert(isString(t, "s") and not isString(t, "n") and isString(t, 1) and not isString(t, 2))
    assert(isNumber(t, "n") and not isNumber(t, "ns") and isNumber(t, 2) and not isNumber(t, 1))
    assert(isBoolean(t, "b") and not isBoolean(t, "zero") and not isBoolean(t, "missing"))
    assert(toString(t, "s") == "text" and toString(t, "n") == nil and toString(t, 1) == "first")
    assert(toNumber(t, "n") == 5 and toNumber(t, "ns") == 0 and toNumber(t, 2) == 2 and toNumber(t, 1) == 0)
    assert(toBoolean(t, "zero") == 1 and toBoolean(t, "empty") == 1 and toBoolean(t, "s") == 1)
    assert(toBoolean(t, "b") == 0 and toBoolean(t, "missing") == 0)
  )lua"), "");
}

TEST_F(TableFieldsTest, OptAndCheckReaders) {
  EXPECT_EQ(run(L, R"lua(
    assert(optString(t, "missing", "d") == "d" and optString(t, "s", "d") == "text")
    assert(optString(t, 1, "d") == "first" and optString(t, 3, "d") == "d")
    assert(optNumber(t, "missing", 1.5) == 1.5 and optNumber(t, 2, 0) == 2 and optNumber(t, "n", 0) == 5)
    assert(optBoolean(t, "b", 1) == 0 and optBoolean(t, "missing", 1) == 1)
    assert(checkString(t, 1) == "first" and checkString(t, "s") == "text")
    assert(checkNumber(t, 2) == 2 and checkNumber(t, "n") == 5 and checkBoolean(t, "b") == 0)
  )lua"), "");
  const std::pair<const char *, const char *> refusals[] = {
      {"optString(t, 'n')", "(string expected, got number)"},
      {"optString(t, 2)", "(string expected, got number)"},
      {"optNumber(t, 'ns')", "(number expected, got string)"},
      {"optNumber(t, 1)", "(number expected, got string)"},
      {"optBoolean(t, 'zero')", "(boolean expected, got number)"},
      {"checkString(t, 'missing')", "(string expected, got nil)"},
      {"checkString(t, 3)", "(string expected, got nil)"},
      {"checkNumber(t, 's')", "(number expected, got string)"},
      {"checkNumber(t, 3)", "(number expected, got nil)"},
      {"checkBoolean(t, 'missing')", "(boolean expected, got nil)"},
  };
  for (const auto &[call, expected] : refusals) {
    const std::string function = std::string(call).substr(0, std::string(call).find('('));
    EXPECT_EQ(run(L, call), "test:1: bad argument #-1 to '" + function + "' " + expected);
  }
  EXPECT_EQ(run(L, "readNullKey(t)"), "Assertion failed: key");
}

TEST_F(TableFieldsTest, ReadersTreatANilTableAsEmpty) {
  EXPECT_EQ(run(L, R"lua(
    assert(not hasString(nil, "s") and not hasNumber(nil, 1) and not hasBoolean(nil, "b") and not hasKey(nil, "k"))
    assert(not isString(nil, "s") and not isNumber(nil, 2) and not isBoolean(nil, "b"))
    assert(toString(nil, "s") == nil and toNumber(nil, 2) == 0 and toBoolean(nil, "b") == 0)
    assert(optString(nil, "s", "d") == "d" and optNumber(nil, 2, 3) == 3 and optBoolean(nil, "b", 1) == 1)
  )lua"), "");
  EXPECT_EQ(run(L, "checkString(nil, 's')"), "test:1: bad argument #-1 to 'checkString' (string expected, got nil)");
}

TEST_F(TableFieldsTest, Writers) {
  EXPECT_EQ(run(L, R"lua(
    local t = {gone = 1}
    setString(t, "s", "text")
    setString(t, 1, "first")
    setString(t, "gone", nil)
    setNumber(t, "n", 2.5)
    setNumber(t, 2, 7)
    setBoolean(t, "b", true)
    setFrom(t, "f", print)
    assert(t.s == "text" and t[1] == "first" and t.gone == nil and t.n == 2.5 and t[2] == 7)
    assert(t.b == true and t.f == print)
    local seen = {}
    local proxy = setmetatable({}, {__newindex = function(_, k, v) seen[k] = v end})
    setNumber(proxy, "n", 1)
    assert(seen.n == 1 and rawget(proxy, "n") == nil)
  )lua"), "");
  EXPECT_EQ(run(L, "setString({}, nil, 'x')"), "table index is nil");
  EXPECT_EQ(run(L, "setFrom({}, nil, 1)"), "Assertion failed: key");
}

TEST_F(TableFieldsTest, RelativeIndicesAndAnUnchangedStack) {
  lua_settop(L, 0);
  lua_getglobal(L, "t");
  lua_pushliteral(L, "above the table");
  TqLuaTable_setNumber(L, -2, "added", 9);
  lua_pushnumber(L, 4);
  TqLuaTable_setFrom(L, -3, "copied", -1);
  lua_pop(L, 1);
  EXPECT_EQ(TqLuaTable_toNumber(L, -2, "added"), 9);
  EXPECT_EQ(TqLuaTable_checkNumber(L, -2, "copied"), 4);
  EXPECT_STREQ(TqLuaTable_optStringAtIndex(L, -2, 1, nullptr), "first");
  EXPECT_EQ(lua_gettop(L), 2);
  EXPECT_STREQ(lua_tostring(L, -1), "above the table");
}

// The default error handler describes the error on the same stack and so would report its
// own overflow; this one passes the error value on untouched.
void raiseWithoutDescribing(void *, lua_State *, int status) { throw TqLuaException("raised", status); }

TEST_F(TableFieldsTest, References) {
  EXPECT_EQ(run(L, R"lua(
    local store = {}
    local r = ref(store, "kept")
    assert(r > 0 and store[r] == "kept")
    assert(ref(store, nil) == -1)
    unref(store, -2)
    unref(store, -1)
    assert(store[r] == "kept")
    unref(store, r)
    assert(store[r] ~= "kept" and store[0] == r)
  )lua"), "");
  TqLuaExceptionHandlers handlers = TqLuaUniverse_getExceptionHandlers(universe);
  handlers.errorHandler = raiseWithoutDescribing;
  TqLuaUniverse_setExceptionHandlers(universe, &handlers);
  EXPECT_EQ(run(L, "refOnFullStack({})"), "test:1: stack overflow (space for ref)");
}

}  // namespace
