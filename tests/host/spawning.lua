-- What tqhost offers scripts: spawned universes with their arguments, queues between them.
assert(debug.getregistry().universeName == "main" and select("#", ...) == 2 and arg[0]:match("spawning.lua$"))
local replies, requests = newTransitQueue(), newTransitQueue()
spawnUniverse("worker", [[
  local n, t, requests = ...
  assert(debug.getregistry().universeName == "worker" and n == 7 and t.word == "seven")
  local m = requests:dequeue()
  m.reply:enqueue(m.text:upper())
  spawnUniverse("child", "(...):enqueue('from a grandchild')", m.reply)
]], 7, {word = "seven"}, requests)
requests:enqueue({text = "ping", reply = replies})
assert(replies:dequeue(true, 30) == "PING" and replies:dequeue(true, 30) == "from a grandchild")
assert(select(2, pcall(spawnUniverse, "w", "", print)) == "spawnUniverse: the arguments cannot be sent to another universe")
