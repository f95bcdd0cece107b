-- Packed values, cargo, transit queues and direct objects as scripts meet them.
local function word(bytes, at, width)  -- a little-endian number at the 1-based offset
  local n = 0
  for i = at + width - 1, at, -1 do n = n * 256 + bytes:byte(i) end
  return n
end

-- The packed format: kind, unwritten padding, length, bytes, terminating zero, filler.
local size, bytes = T.pack("abc")
assert(size == 24 and word(bytes, 1, 4) == 4 and bytes:byte(5) == 0xAB and word(bytes, 9, 8) == 3)
assert(bytes:sub(17, 20) == "abc\0" and bytes:sub(21) == ("\171"):rep(4))
assert(T.pack("1234567") == 24 and T.pack("12345678") == 32 and T.pack({}) == 16 and T.pack(T.light(true)) == 16)
same(T.unpack(select(2, T.pack("a\0b\0\0c"))), "a\0b\0\0c", "zero bytes")
size, bytes = T.pack()
assert(size == 16 and word(bytes, 1, 4) == 0xFFFFFFFF and word(bytes, 9, 4) == 0 and T.unpack(bytes) == nil)
local shared = {1}
local arrived = T.unpack(select(2, T.pack({a = shared, b = shared})))
assert(T.pack({a = shared, b = shared}) == 16 + 2 * (24 + 48) and arrived.a ~= arrived.b and arrived.b[1] == 1)
local message = {"x", 2.5, true}
local copy, messageSize, unlinked = T.message(message)
assert(messageSize == T.pack(message) and unlinked and copy[1] .. copy[2] .. tostring(copy[3]) == "x2.5true")

-- Refused values print why and pack nothing.
local function noFunction(kind) return "Transit of type " .. kind .. " unimplemented\n" end
local noMetatable = "Tables with metatables are not supported for transit copying\n"
for _, case in ipairs({{print, noFunction(6)}, {{1, {f = print}}, noFunction(6)}, {{[print] = 1}, noFunction(6)},
                       {{a = {b = setmetatable({}, {})}}, noMetatable}, {{T.heavy()}, noFunction(7)},
                       {setmetatable({}, {__metatable = false}), noMetatable}, {T.Frozen(), noFunction(7)},
                       {{coroutine.create(function() end)}, noFunction(8)}}) do
  same(select(3, T.pack(case[1])), case[2], "refusal")
  assert(T.pack(case[1]) == 0 and T.message(case[1]) == nil)
end
local loop = {1}
loop.self = loop
same(select(2, pcall(T.unpack, "\42" .. ("\0"):rep(15))), "Assertion failed: 0", "unknown kind")
same(select(2, pcall(T.pack, loop)), "stack overflow (No space in source for copy.)", "self-containing table")

-- Dumps print tables one pair per line, each level indented by a tab and two spaces.
same(T.dumpPacked(select(2, T.pack({"text", {true, false}}))), '{\n\t  [ 1.000000 ] = "text",\n\t  [ 2.000000 ] = ' ..
  '\t  {\n\t  \t  [ 1.000000 ] = true,\n\t  \t  [ 2.000000 ] = false,\n\t  },\n}', "dump")
same(T.dumpPacked(select(2, T.pack(nil))), "nil", "nil dump")
same(T.dumpPacked(select(2, T.pack({a = T.plain(("x"):rep(16))}))), '{\n\t  [ "a" ] = ,\n}', "a direct object prints nothing")
assert(T.dumpPacked(select(2, T.pack(T.light(true)))):match("^LightUserData%( 0x%x+ %)$"))

-- Random trees (keys and values of every kind, special numbers, long strings, direct
-- objects) arrive deeply equal, at the size the format gives.
math.randomseed(7)
local specials = {0 / 0, 1 / 0, -1 / 0, -0.0, 5e-324, 9007199254740993}
local function randomString()
  local chars = {}
  for i = 1, math.random(4) == 1 and 1024 + math.random(16) or math.random(0, 20) do
    chars[i] = ("\0az \n\255\""):sub(math.random(7), math.random(7))
  end
  return table.concat(chars)
end
local function randomKey()
  return ({function() return math.random(2) == 1 end, function() return math.random(-1000, 1000) end,
           randomString, function() return T.light(math.random(2) == 1) end})[math.random(4)]()
end
local function randomValue(depth, tree)
  local pick = math.random(depth < 8 and 9 or 8)
  if pick == 1 then return nil elseif pick == 2 then return randomKey() elseif pick == 3 then return specials[math.random(6)]
  elseif pick <= 5 then return randomString() elseif pick == 6 then return math.random() * 2e6 - 1e6
  elseif pick == 7 then return T.plain(("\7"):rep(16)) end
  local t = {}
  for _ = 1, math.random(0, depth < 3 and 8 or 4) do t[randomKey()] = randomValue(depth + 1) end
  if tree and tree > 1 then t[randomKey()] = randomValue(depth + 1, tree - 1) end
  return t
end
local function packedSize(v)
  if type(v) == "string" then return 16 + math.floor((#v + 8) / 8) * 8 end
  if type(v) == "userdata" and T.plainBytes(v) then return 32 end
  local total = 16
  if type(v) == "table" then for k, x in pairs(v) do total = total + packedSize(k) + packedSize(x) end end
  return total
end
local function sameValue(a, b)
  if type(a) ~= type(b) then return false end
  if a ~= a then return b ~= b end
  if type(a) == "userdata" and T.plainBytes(a) then return T.plainBytes(a) == T.plainBytes(b) end
  if type(a) ~= "table" then return a == b or (a == 0 and b == 0 and 1 / a == 1 / b) end
  for k, v in pairs(a) do if not sameValue(v, b[k]) then return false end end
  for k in pairs(b) do if a[k] == nil then return false end end
  return getmetatable(b) == nil
end
for round = 1, 300 do
  local value = randomValue(1, 1 + round % 8)
  assert(T.pack(value) == packedSize(value), round)
  assert(sameValue(value, T.copy(value, round % 2 == 0)), round)
end

-- Cargo: native value trees, converted, walked and released.
local tree = {"table", 5, "string", "name", "string", "cargo", "number", 1, "string", "a\0b", "string", "flag",
              "boolean", 5, "string", "list", "table", 2, "number", 1, "number", 0.25, "number", 2, "nil", 0,
              "string", "wrapped", "cargo", {"number", 7}}
local value, delivered = T.cargo("deliver", unpack(tree))
assert(delivered == 16 + 24 + 24 + 16 + 24 + 24 + 16 + 24 + 80 + 24 + 24)
assert(value.name == "cargo" and value[1] == "a\0b" and value.flag == true and value.wrapped == 7)
assert(value.list[1] == 0.25 and value.list[2] == nil)
value, delivered = T.cargo("deliver", "plain", "0123456789abcdef")
assert(delivered == 32 and T.plainBytes(value) == "0123456789abcdef")
same(all(T.cargo("walk", "table", 2, "string", "k\0y", "boolean", 1, "number", 2.5, "nil", 0)),
  "5:0:0.00::2 4:0:0.00:k\0y:0 1:1:0.00::0 3:0:2.50::0 0:0:0.00::0 5:0:0.00::0  1 ", "walk")
same(all(T.cargo("walk", "table", 2, "number", 1, "light", 0, "number", 2, "number", 3)),
  "5:0:0.00::2 3:0:1.00::0  0 Transit of type 2 unimplemented\n", "walks stop at light userdata")
assert(T.light(true) == T.cargo("deliver", "table", 1, "number", 1, "light", 0)[1], "light userdata travel")
same(T.cargo("release", "table", 1, "string", "key", "table", 1, "number", 1, "string", ("x"):rep(100)), "", "release")
same(T.cargo("release"), "", "empty cargo")
same(T.cargo("deliver", "table", 1, "string", "b", "plain", "0123456789abcdef") ~= nil, true, "cargo of a table")

-- Queues: values come out in the order they went in; refusals leave the queue as it was.
local q = T.newQueue()
q:enqueue(1) q:enqueue("two") q:enqueue({3, nested = {"three"}}) q:enqueue(false) q:enqueue(nil)
same(q:dequeue(), 1, "first") same(q:dequeue(false), "two", "second")
same(q:dequeue().nested[1], "three", "third") same(q:dequeue(), false, "fourth")
same(select("#", q:dequeue(false)), 1, "the nil") same(select("#", q:dequeue(false)), 0, "empty")
q:enqueue("kept")
Q = q
cases {
  {"Q:enqueue({1, print})", "Assertion failed: packed"},
  {"Q:enqueue(setmetatable({}, {}))", "Assertion failed: packed"},
  {"Q:dequeue(true, -1)", "Assertion failed: delay >= 0"},
  {"Q:dequeue(false, 0/0)", "Assertion failed: delay >= 0"},
  {"newQueue(nil, 1)", "t:1: bad argument #2 to 'newQueue' (boolean expected, got number)"},
  {"return getmetatable(newQueue(nil, nil))", "< private metatable >"},
  {"return mark(newQueue())", 0xABBABABE},
}
same(q:dequeue(false), "kept", "kept")
-- An empty queue answers nothing at once, or after the time limit (at least a millisecond);
-- wait flags other than booleans leave the default (wait).
assert(select("#", q:dequeue(false, 1000)) == 0 and select("#", q:dequeue(true, 0.02)) == 0)
assert(select("#", q:dequeue("yes", "0.01")) == 0 and select("#", q:dequeue(true, 0.0004)) == 0)
-- A closed queue refuses values but still drains.
q:enqueue(1)
same(q.closed, false, "open")
q:close() q:close()
same(q.closed, true, "closed")
same(select(2, pcall(q.enqueue, q, 3)), "Assertion failed: !priv->_closed", "closed enqueue")
assert(q:dequeue(false) == 1 and select("#", q:dequeue(false)) == 0)
same(select(2, pcall(function() q.closed = false end)),
  "Attempt to write to field 'closed' of class 'TransitQueue'. This field does not support writing.", "closed")
-- Queues travel inside values: copies share the messages; a move (the queue's default or the
-- enqueue's flag) kills the sender's object.
local copying, moving = T.newQueue(nil, false), T.newQueue(nil, true)
local a, b, c, d = T.newQueue(), T.newQueue(), T.newQueue(), T.newQueue()
copying:enqueue({a}) copying:enqueue({b}, true) moving:enqueue({c}) moving:enqueue({d}, false) moving:enqueue({d}, "x")
assert(T.mark(a) == 0xABBABABE and T.mark(b) == 0xDEADACDC and T.mark(c) == 0xDEADACDC and T.mark(d) == 0xDEADACDC)
for i, carrier in ipairs({copying, copying, moving, moving, moving}) do
  local received = carrier:dequeue(false)[1]
  same(T.mark(received), 0xABBAACDC, "arrived")
  received:enqueue(i)
  same((i == 1 and a or received):dequeue(false), i, "arrived queue")
end
local request = T.copy({question = 6, reply = a})
request.reply:enqueue(request.question * 7)
same(a:dequeue(false), 42, "reply")

-- Direct objects: class checks, properties, members, class objects.
cases {
  {"s, c = Shape(), Circle() return c.radius(s)", "Expected object of class Circle at index 1, got value of type userdata."},
  {"s.area(5)", "Expected object of class Shape at index 1, got value of type number."},
  {"s.area()", "Expected object of class Shape at index 1, got value of type no value."},
  {"Bag().count(s)", "Expected object of class Bag at index 1, got value of type userdata."},
  {"return c:area() + c.radius(c) + c.id", 0}, {"return getmetatable(c)", "< private metatable >"},
  {"return tostring(c)", "a circle"}, {"return probe(c):sub(1, 2)", "-2"},
  {"s.id = 12 s.secret = 3.5 return all(s.id, s:area(), s.kind, tostring(s))", "12 3.5 shape Shape #12"},
  {"return s.secret", "Attempt to read from field 'secret' of class 'Shape'. This field does not support reading."},
  {"s.kind = 'x'", "Attempt to write to field 'kind' of class 'Shape'. This field does not support writing."},
  {"s.id = 1.5", "expected integer, got 1.500000"},
  {"return c.x", "Unable to fetch property 'x' from object of type 'Circle'"},
  {"return s[1.5]", "Unable to fetch property '1.5' from object of type 'Shape'"},
  {"return s[true]", "Unable to fetch property keyed by value of type 'boolean' from object of type 'Shape'"},
  {"s.x = 1", "Unable to set property 'x' on object of type 'Shape'"},
  {"s[3] = 1", "Unable to set property '3' on object of type 'Shape'"},
  {"s[{}] = 1", "Unable to set property keyed by value of type 'table' on object of type 'Shape'"},
  {"local b = Bag() b.x = 1 b.y = 2 return b:count() .. ' ' .. b.anything", "2 anything!"},
  {"local r = Record() return r.kind .. ' ' .. r.other", "shape other!"},
  {"Record().other = 1", "Unable to set property 'other' on object of type 'Record'"},
  {"return Point(1, 2).nothing", nil},
  {"return all(Point(1.5, 2):sum(), select(2, Point(1, 2)))", "3.5 made"},
  {"return Point(1, 2):hooked()", 42},
  {"Point('1', 2)", "t:1: bad argument #2 to 'Point' (number expected, got string)"},
  {"return all(Shape:testObject(Circle()), Circle:testObject(Shape()), Shape:testObject(5))", "true false false"},
  {"return getmetatable(Shape)", "< private metatable >"},
  {"nullClass()", "No class description provided when pushing class."},
  {"return plainBytes(copy(Circle()))", nil}, {"return copy(Circle()).id", 0},
}

-- Native handles: only the holder of the last reference destroys the queue and reports what
-- it held, so each step shows whether a handle gave its reference back.
local orphan = 'Objects orphaned in transit queue\n"left behind"\n'
local created = T.newHandle()
same(T.handleView(created), 0xABBABABE, "created")
T.sendCargo(created, "left behind")
local uncounted = T.pushQueue(created)
same(T.mark(uncounted), 0, "pushed")
local retained, copied = T.retain(uncounted), T.copy(uncounted)
same(T.handleView(retained), 0xBEE6EE51, "retained")
for _, mark in ipairs({0xDEADABBA, 0, 0x12345678}) do same(T.release(created, mark), "", "stranger") end
same(T.release(created) .. T.release(retained), "", "counted releases")
copied = nil
collectgarbage()
local last = T.copy(uncounted, true)  -- moving out of it is the one way to return its reference
same(T.mark(uncounted), 0xDEADACDC, "moved from")
uncounted = nil
collectgarbage()
same(T.collectQueue(last), orphan, "the last holder reports")
same(T.mark(last), 0xDEADABBA, "collected")
same(select(2, T.handleView(T.handleOf(last))), 0, "collected core")
-- A native handle moved into cargo is dead; the last release reports every value, unless silent.
local carrier, moved = T.newHandle(), T.newHandle()
T.sendCargo(moved, "left behind")
T.sendCargo(carrier, moved)
same(all(T.handleView(moved)), 0xDEADACDC .. " " .. 0xABBAABB2, "moved native handle")
same(T.release(moved), "", "moved release")
same(T.collectQueue(T.dequeueFrom(carrier)), orphan, "arrived")
for _, v in ipairs({1.5, "text", {a = true}}) do T.enqueueTo(carrier, v) end
same(T.release(carrier), 'Objects orphaned in transit queue\n1.500000\n"text"\n{\n\t  [ "a" ] = true,\n}\n', "report")
local silent = T.newHandle()
T.sendCargo(silent, "left behind")
same(T.releaseSilent(silent), "", "silent")
-- Only cargo reaches a closed queue; strings come out without a Lua state.
local closed = T.newQueue()
closed:close()
local h = T.handleOf(closed)
assert(T.enqueueTo(h, "refused") == 0 and T.isEmpty(h) == 1)
T.sendCargo(h, "zero\0inside")
assert(T.isEmpty(h) == 0 and T.dequeueString(h, true, -1) == "zero\0inside\0" and T.isEmpty(h) == 1)
assert(T.dequeueString(h, false, 0) == nil and T.dequeueString(h, true, 0.01) == nil)
same(select(2, pcall(T.dequeueString, h, true, -1)), "Assertion failed: maxTime >= 0", "negative wait")
assert(T.optQueue(nil) and not T.optQueue(closed))
same(select(2, pcall(T.optQueue, "x")), "Expected object of class TransitQueue at index 1, got value of type string.", "opt")
same(select(2, pcall(T.retain, 5)), "Expected object of class TransitQueue at index 1, got value of type number.", "retain")
