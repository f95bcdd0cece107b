// Direct objects: classes, members, class objects, and copies across states.
#include <cmath>
#include <cstring>
#include <set>

#include "transit_support.h"

namespace transit_test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

struct ShapeData {
  double area;
  int64_t id;
};

ShapeData *shape(void *instance) { return static_cast<ShapeData *>(instance); }

int shapeArea(void *instance, lua_State *L) {
  lua_pushnumber(L, shape(instance)->area);
  return 1;
}
int shapeToString(void *instance, lua_State *L) {
  lua_pushfstring(L, "Shape #%d", static_cast<int>(shape(instance)->id));
  return 1;
}
int getId(void *instance, lua_State *L) {
  lua_pushnumber(L, static_cast<lua_Number>(shape(instance)->id));
  return 1;
}
int setId(void *instance, lua_State *L) {
  shape(instance)->id = TqLua_checkInteger(L, 3);
  return 0;
}
int getKind(void *, lua_State *L) {
  lua_pushliteral(L, "shape");
  return 1;
}
int setSecret(void *instance, lua_State *L) {
  shape(instance)->area = TqLua_checkNumber(L, 3);
  return 0;
}

const TqDirectObjectMethod kShapeMethods[] = {
    {"area", shapeArea}, {"__tostring", shapeToString}, {nullptr, nullptr}};
const TqDirectObjectProperty kShapeProperties[] = {
    {"id", getId, setId}, {"kind", getKind, nullptr}, {"secret", nullptr, setSecret}, {nullptr, nullptr, nullptr}};
const TqDirectObjectClass kShape = {nullptr, "Shape", sizeof(ShapeData), nullptr, nullptr,
                                    TqDirectObject_memcpy, kShapeMethods, kShapeProperties};

int circleRadius(void *instance, lua_State *L) {
  lua_pushnumber(L, std::sqrt(shape(instance)->area / M_PI));
  return 1;
}
int circleToString(void *, lua_State *L) {
  lua_pushliteral(L, "a circle");
  return 1;
}
const TqDirectObjectMethod kCircleMethods[] = {
    {"radius", circleRadius}, {"__tostring", circleToString}, {nullptr, nullptr}};
// Inherits the size and the copy operation.
const TqDirectObjectClass kCircle = {&kShape, "Circle", 0, nullptr, nullptr, nullptr, kCircleMethods, nullptr};
// Sizes its instances without a copy: cannot travel although Shape could.
const TqDirectObjectClass kFrozen = {&kShape, "Frozen", 24, nullptr, nullptr, nullptr, nullptr, nullptr};

// Its own __index and __newindex, no properties.
int bagIndex(void *, lua_State *L) {
  lua_pushvalue(L, 2);
  lua_pushliteral(L, "!");
  lua_concat(L, 2);
  return 1;
}
int bagNewIndex(void *instance, lua_State *) {
  ++*static_cast<int64_t *>(instance);
  return 0;
}
int bagCount(void *instance, lua_State *L) {
  lua_pushnumber(L, static_cast<lua_Number>(*static_cast<int64_t *>(instance)));
  return 1;
}
const TqDirectObjectMethod kBagMethods[] = {
    {"__index", bagIndex}, {"__newindex", bagNewIndex}, {"count", bagCount}, {nullptr, nullptr}};
const TqDirectObjectClass kBag = {nullptr, "Bag", 8, nullptr, nullptr, nullptr, kBagMethods, nullptr};

// Properties and an own __index to fall back on.
const TqDirectObjectProperty kRecordProperties[] = {{"kind", getKind, nullptr}, {nullptr, nullptr, nullptr}};
const TqDirectObjectMethod kRecordMethods[] = {{"__index", bagIndex}, {nullptr, nullptr}};
const TqDirectObjectClass kRecord = {nullptr, "Record", 8, nullptr, nullptr, nullptr, kRecordMethods,
                                     kRecordProperties};

int answer(lua_State *L) {
  lua_pushnumber(L, 42);
  return 1;
}
int hookMetatable(lua_State *L) {
  lua_pushcfunction(L, answer);
  lua_setfield(L, 2, "hooked");
  lua_pushliteral(L, "seen");
  lua_setfield(L, 1, "__hooked");
  return 0;
}
int constructPoint(const TqDirectObjectClass *objectClass, lua_State *L) {
  auto *point = static_cast<double *>(TqDirectObject_checkPushAllocToLua(L, objectClass));
  point[0] = TqLua_checkNumber(L, 2);
  point[1] = TqLua_checkNumber(L, 3);
  lua_pushliteral(L, "made");
  return 2;
}
int pointSum(void *instance, lua_State *L) {
  lua_pushnumber(L, static_cast<double *>(instance)[0] + static_cast<double *>(instance)[1]);
  return 1;
}
const TqDirectObjectMethod kPointMethods[] = {{"sum", pointSum}, {nullptr, nullptr}};
const TqDirectObjectClass kPoint = {nullptr, "Point", 16, hookMetatable, constructPoint, nullptr,
                                    kPointMethods, nullptr};

class DirectObjectTest : public TwoStatesTest {
protected:
  void SetUp() override {
    TwoStatesTest::SetUp();
    L = source;
    for (const TqDirectObjectClass *objectClass : {&kShape, &kCircle, &kFrozen, &kBag, &kRecord, &kPoint}) {
      TqDirectObject_checkPushClassToLua(L, objectClass);
      lua_setglobal(L, objectClass->name);
    }
  }

  lua_State *L = nullptr;
};

TEST_F(DirectObjectTest, ClassResolutionFollowsTheSuperclassChain) {
  EXPECT_TRUE(TqDirectObject_classHasSuperclass(&kCircle, &kShape));
  EXPECT_TRUE(TqDirectObject_classHasSuperclass(&kCircle, &kCircle));
  EXPECT_FALSE(TqDirectObject_classHasSuperclass(&kShape, &kCircle));
  EXPECT_FALSE(TqDirectObject_classHasSuperclass(nullptr, &kShape));
  EXPECT_FALSE(TqDirectObject_classHasSuperclass(&kShape, nullptr));

  ShapeData data = {2.0, 9};
  std::vector<unsigned char> packed(64, 0xAB);
  EXPECT_EQ(TqDirectObject_pack(&kCircle, &data, packed.data(), 0), 8u + sizeof data);
  const TqDirectObjectClass *recorded;
  std::memcpy(&recorded, packed.data(), sizeof recorded);
  EXPECT_EQ(recorded, &kCircle);
  EXPECT_EQ(std::memcmp(packed.data() + 8, &data, sizeof data), 0);
  EXPECT_EQ(packed[8 + sizeof data], 0xAB);

  EXPECT_EQ(TqDirectObject_pack(&kFrozen, &data, nullptr, 0), 0u);
  TqDirectObject_checkPushAllocToLua(L, &kFrozen);
  CaptureStderr();
  EXPECT_EQ(TqTransitValue_pack(L, -1, 0, nullptr), 0u);
  EXPECT_EQ(GetCapturedStderr(), "Transit of type 7 unimplemented\n");
}

TEST_F(DirectObjectTest, InstancesAreZeroFilledNativeObjects) {
  auto *data = static_cast<ShapeData *>(TqDirectObject_checkPushAllocToLua(L, &kCircle));
  EXPECT_EQ(data->area, 0.0);
  EXPECT_EQ(data->id, 0);
  EXPECT_EQ(TqLua_type(L, -1), kTqLuaTypeNativeObject);
  EXPECT_EQ(TqDirectObject_fromLua(L, -1, &kShape), data);
  EXPECT_EQ(TqDirectObject_fromLua(L, -1, &kCircle), data);
  EXPECT_EQ(TqDirectObject_fromLua(L, -1, &kBag), nullptr);
  lua_setglobal(L, "c");
  EXPECT_EQ(tqtest::eval(L, "getmetatable(c)"), "< private metatable >");
  EXPECT_EQ(tqtest::eval(L, "tostring(c)"), "a circle");
  EXPECT_EQ(tqtest::eval(L, "c:area()"), "0");

  lua_pushnumber(L, 1);
  EXPECT_EQ(TqDirectObject_fromLua(L, -1, &kShape), nullptr);
  EXPECT_EQ(TqDirectObject_optFromLua(L, 50, &kShape, data), data);

  // A light userdata is an instance when the state's shared light-userdata metatable
  // marks the class; its pointer is the instance.
  ShapeData outside = {1.0, 2};
  lua_pushlightuserdata(L, &outside);
  EXPECT_EQ(TqDirectObject_fromLua(L, -1, &kShape), nullptr);
  lua_getglobal(L, "c");
  lua_getmetatable(L, -1);
  lua_setmetatable(L, -3);
  EXPECT_EQ(TqDirectObject_fromLua(L, -2, &kShape), &outside);
  lua_pushnil(L);
  EXPECT_EQ(TqDirectObject_optFromLua(L, -1, &kShape, data), data);
}

TEST_F(DirectObjectTest, ClassChecksNameTheClassAndTheValue) {
  ASSERT_EQ(tqtest::run(L, "s = Shape() c = Circle()"), "");
  EXPECT_EQ(tqtest::run(L, "c.radius(s)"),
            "Expected object of class Circle at index 1, got value of type userdata.");
  EXPECT_EQ(tqtest::run(L, "s.area(5)"), "Expected object of class Shape at index 1, got value of type number.");
  EXPECT_EQ(tqtest::run(L, "s.area()"), "Expected object of class Shape at index 1, got value of type no value.");
  EXPECT_EQ(tqtest::run(L, "Bag().count(s)"), "Expected object of class Bag at index 1, got value of type userdata.");
  EXPECT_EQ(tqtest::run(L, "assert(c:area() == 0 and c.radius(c) == 0)"), "") << "a subclass passes";

  EXPECT_EQ(protect(L,
                    [](lua_State *S) {
                      lua_pushnil(S);
                      TqDirectObject_checkFromLua(S, 1, &kShape);
                    }),
            "Expected object of class Shape at index 1, got value of type nil.");
  EXPECT_EQ(protect(L, [](lua_State *S) { TqDirectObject_optFromLua(S, 1, &kShape, nullptr); }), "");
  EXPECT_EQ(protect(L,
                    [](lua_State *S) {
                      lua_pushliteral(S, "x");
                      TqDirectObject_optFromLua(S, 1, &kShape, nullptr);
                    }),
            "Expected object of class Shape at index 1, got value of type string.");
}

TEST_F(DirectObjectTest, PropertiesReadAndWriteThroughAccessors) {
  ASSERT_EQ(tqtest::run(L, "s = Shape() s.id = 12 s.secret = 3.5"), "");
  EXPECT_EQ(tqtest::eval(L, "s.id .. ' ' .. s:area() .. ' ' .. s.kind"), "12 3.5 shape");
  EXPECT_EQ(tqtest::eval(L, "tostring(s)"), "Shape #12");
  EXPECT_EQ(tqtest::run(L, "return s.secret"),
            "Attempt to read from field 'secret' of class 'Shape'. This field does not support reading.");
  EXPECT_EQ(tqtest::run(L, "s.kind = 'x'"),
            "Attempt to write to field 'kind' of class 'Shape'. This field does not support writing.");
  EXPECT_EQ(tqtest::run(L, "s.id = 1.5"), "expected integer, got 1.500000");
}

TEST_F(DirectObjectTest, UnknownMembersAreErrorsWhenTheClassHasProperties) {
  ASSERT_EQ(tqtest::run(L, "s = Shape() c = Circle()"), "");
  EXPECT_EQ(tqtest::run(L, "return c.x"), "Unable to fetch property 'x' from object of type 'Circle'");
  EXPECT_EQ(tqtest::run(L, "return s[1.5]"), "Unable to fetch property '1.5' from object of type 'Shape'");
  EXPECT_EQ(tqtest::run(L, "return s[true]"),
            "Unable to fetch property keyed by value of type 'boolean' from object of type 'Shape'");
  EXPECT_EQ(tqtest::run(L, "s.x = 1"), "Unable to set property 'x' on object of type 'Shape'");
  EXPECT_EQ(tqtest::run(L, "s[3] = 1"), "Unable to set property '3' on object of type 'Shape'");
  EXPECT_EQ(tqtest::run(L, "s[{}] = 1"),
            "Unable to set property keyed by value of type 'table' on object of type 'Shape'");
  EXPECT_EQ(tqtest::eval(L, "c.id"), "0") << "inherited properties";
}

TEST_F(DirectObjectTest, AClassesOwnIndexAndNewIndexTakeTheKeysNobodyElseKnows) {
  ASSERT_EQ(tqtest::run(L, "b = Bag() b.x = 1 b.y = 2"), "");
  EXPECT_EQ(tqtest::eval(L, "b:count()"), "2");
  EXPECT_EQ(tqtest::eval(L, "b.anything"), "anything!");

  ASSERT_EQ(tqtest::run(L, "r = Record()"), "");
  EXPECT_EQ(tqtest::eval(L, "r.kind .. ' ' .. r.other"), "shape other!");
  EXPECT_EQ(tqtest::run(L, "r.other = 1"), "Unable to set property 'other' on object of type 'Record'");

  // Without properties or an own __index, unknown keys read nil.
  ASSERT_EQ(tqtest::run(L, "p = Point(1, 2)"), "");
  EXPECT_EQ(tqtest::eval(L, "p.nothing"), "nil");
}

TEST_F(DirectObjectTest, ClassObjectsConstructAndTestInstances) {
  EXPECT_EQ(tqtest::eval(L, "select('#', Point(1, 2)) .. select(2, Point(1, 2))"), "2made");
  EXPECT_EQ(tqtest::eval(L, "Point(1.5, 2):sum()"), "3.5");
  EXPECT_EQ(tqtest::run(L, "Point('1', 2)"), "test:1: bad argument #2 to 'Point' (number expected, got string)");
  EXPECT_EQ(tqtest::eval(L, "Shape:testObject(Circle())"), "true");
  EXPECT_EQ(tqtest::eval(L, "Circle:testObject(Shape())"), "false");
  EXPECT_EQ(tqtest::eval(L, "Shape:testObject(5)"), "false");
  EXPECT_EQ(tqtest::eval(L, "getmetatable(Shape)"), "< private metatable >");

  TqDirectObject_checkPushClassToLua(L, &kShape);
  lua_getglobal(L, "Shape");
  EXPECT_TRUE(lua_rawequal(L, -1, -2)) << "one class object per class and state";
  EXPECT_NE(TqDirectObject_fromLua(L, -1, &TqDirectObject_Class), nullptr);
  EXPECT_EQ(protect(L, [](lua_State *S) { TqDirectObject_checkPushClassToLua(S, nullptr); }),
            "No class description provided when pushing class.");
}

TEST_F(DirectObjectTest, TheMetatableHookSeesBothTables) {
  ASSERT_EQ(tqtest::run(L, "p = Point(1, 2)"), "");
  EXPECT_EQ(tqtest::eval(L, "p:hooked()"), "42");
  TqDirectObject_checkPushAllocToLua(L, &kPoint);
  EXPECT_EQ(TqLua_getMethodByName(L, -1, "sum"), 1) << "methods are found through __hasmethods";
  lua_getmetatable(L, -2);
  lua_getfield(L, -1, "__hooked");
  EXPECT_STREQ(lua_tostring(L, -1), "seen");
}

// Raises errors without describing them: the default description itself needs more room
// on a nearly full stack and would replace the error.
void throwUndescribed(void *, lua_State *, int status) { throw TqLuaException("undescribed", status); }

TEST_F(DirectObjectTest, BuildingAMetatableNeedsStackRoom) {
  TqLuaExceptionHandlers handlers = TqLuaUniverse_getExceptionHandlers(destinationUniverse);
  handlers.errorHandler = throwUndescribed;
  TqLuaUniverse_setExceptionHandlers(destinationUniverse, &handlers);
  EXPECT_EQ(protect(destination,
                    [](lua_State *S) {
                      luaL_checkstack(S, 7999, "test");
                      for (int i = 0; i < 7990; ++i) lua_pushnil(S);
                      TqDirectObject_checkPushAllocToLua(S, &kShape);
                    }),
            "stack overflow (No space in stack for building metatable)");
}

// A native resource shared by handles; copies take a reference, moves carry it over.
struct Resource {
  int references;
};
struct HandleData {
  Resource *resource;
  uint64_t spare;
};

int liveResources = 0;
int disposalsWithoutState = 0;
std::multiset<void *> collected;

void copyHandle(void *destination, void *source, size_t size, int canUseMoveSemantics) {
  ASSERT_EQ(size, sizeof(HandleData));
  auto *to = static_cast<HandleData *>(destination);
  auto *from = static_cast<HandleData *>(source);
  to->resource = from->resource;
  if (canUseMoveSemantics) {
    from->resource = nullptr;
  } else if (to->resource) {
    ++to->resource->references;
  }
}

int releaseHandle(void *instance, lua_State *L) {
  if (L) {
    collected.insert(instance);
  } else {
    ++disposalsWithoutState;
  }
  auto *handle = static_cast<HandleData *>(instance);
  if (handle->resource && --handle->resource->references == 0) {
    delete handle->resource;
    --liveResources;
  }
  handle->resource = nullptr;
  return 0;
}

const TqDirectObjectMethod kHandleMethods[] = {{"__gc", releaseHandle}, {nullptr, nullptr}};
const TqDirectObjectClass kHandle = {nullptr, "Handle", sizeof(HandleData), nullptr, nullptr, copyHandle,
                                     kHandleMethods, nullptr};
// Inherits everything, __gc included.
const TqDirectObjectClass kSubHandle = {&kHandle, "SubHandle", 0, nullptr, nullptr, nullptr, nullptr, nullptr};

HandleData *pushHandle(lua_State *L, const TqDirectObjectClass *objectClass) {
  auto *handle = static_cast<HandleData *>(TqDirectObject_checkPushAllocToLua(L, objectClass));
  handle->resource = new Resource{1};
  ++liveResources;
  return handle;
}

TEST_F(DirectObjectTest, CopiesShareAndMovesCarryANativeResource) {
  liveResources = disposalsWithoutState = 0;
  collected.clear();
  HandleData *original = pushHandle(source, &kSubHandle);
  Resource *resource = original->resource;

  TqTransitQueue_copyFromLuaStateToLuaState(source, -1, destination, 0);
  EXPECT_EQ(resource->references, 2);
  EXPECT_EQ(disposalsWithoutState, 1) << "the packed copy is disposed of after adoption";
  auto *copy = static_cast<HandleData *>(TqDirectObject_fromLua(destination, -1, &kHandle));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->resource, resource);

  EXPECT_EQ(TqDirectObject_copyFromLuaStateToLuaState(source, -1, destination, 0), 1);
  EXPECT_EQ(resource->references, 3);
  EXPECT_EQ(disposalsWithoutState, 1) << "a direct copy has no packed instance";

  TqTransitQueue_copyFromLuaStateToLuaState(source, -1, destination, 1);
  EXPECT_EQ(original->resource, nullptr) << "moved from";
  EXPECT_EQ(resource->references, 3);
  EXPECT_EQ(disposalsWithoutState, 2);

  lua_pushnumber(source, 1);
  EXPECT_EQ(TqDirectObject_copyFromLuaStateToLuaState(source, -1, destination, 0), 0);
  TqDirectObject_checkPushAllocToLua(source, &kFrozen);
  EXPECT_EQ(TqDirectObject_copyFromLuaStateToLuaState(source, -1, destination, 0), 0);
  EXPECT_EQ(lua_gettop(destination), 3);

  TqLuaUniverse_close(sourceUniverse);
  sourceUniverse = nullptr;
  EXPECT_EQ(liveResources, 1);
  TqLuaUniverse_close(destinationUniverse);
  destinationUniverse = nullptr;
  EXPECT_EQ(liveResources, 0);
  EXPECT_EQ(collected.size(), 4u) << "the original and three arrivals";
  for (void *instance : collected) EXPECT_EQ(collected.count(instance), 1u);
}

TEST_F(DirectObjectTest, PackedInstancesCanBeCopiedWithoutOwnershipAndDisposedOf) {
  liveResources = disposalsWithoutState = 0;
  HandleData *original = pushHandle(source, &kHandle);
  std::vector<unsigned char> packed(8 + sizeof(HandleData));
  ASSERT_EQ(TqDirectObject_packFromLua(source, -1, packed.data(), 0), packed.size());
  EXPECT_EQ(original->resource->references, 2);

  EXPECT_EQ(TqDirectObject_unpack_v2(packed.data(), destination, 0), packed.size());
  EXPECT_EQ(original->resource->references, 3);
  EXPECT_EQ(disposalsWithoutState, 0);
  TqDirectObject_disposePacked(packed.data());
  EXPECT_EQ(original->resource->references, 2);
  EXPECT_EQ(disposalsWithoutState, 1);

  lua_pushnumber(source, 1);
  EXPECT_EQ(TqDirectObject_packFromLua(source, -1, nullptr, 0), 0u);
  lua_newtable(source);
  EXPECT_EQ(TqDirectObject_packFromLua(source, -1, nullptr, 0), 0u);
}

}  // namespace
}  // namespace transit_test
