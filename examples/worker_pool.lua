-- A pool of worker universes. The main universe sends work items as tables through one
-- shared queue; each item carries the queue its result must go to. Workers run on their
-- own threads, each in its own Lua universe, and share nothing but the queues.
--
--   tqhost examples/worker_pool.lua [WORKERS] [ITEMS]

local arguments = { ... }
local workerCount = tonumber(arguments[1]) or 4
local itemCount = tonumber(arguments[2]) or 400

local workerSource = [[
local name, work = ...
while true do
  local item = work:dequeue()
  if item.stop then break end
  local sum = 0
  for i = 1, item.n do sum = sum + i * i end
  item.reply:enqueue({ worker = name, id = item.id, sum = sum })
end
]]

local started = elapsedSeconds()
local work = newTransitQueue()
local results = newTransitQueue()
for w = 1, workerCount do
  local name = "worker" .. w
  spawnUniverse(name, workerSource, name, work)
end

for id = 1, itemCount do
  work:enqueue({ id = id, n = 1000 + id, reply = results })
end

-- Sums of squares have a closed form: every result can be checked.
local perWorker, wrong = {}, 0
for _ = 1, itemCount do
  local result = results:dequeue()
  local n = 1000 + result.id
  if result.sum ~= n * (n + 1) * (2 * n + 1) / 6 then wrong = wrong + 1 end
  perWorker[result.worker] = (perWorker[result.worker] or 0) + 1
end
for _ = 1, workerCount do work:enqueue({ stop = true }) end

print(("%d items processed by %d workers in %.3f s, %d wrong"):format(
  itemCount, workerCount, elapsedSeconds() - started, wrong))
for w = 1, workerCount do
  local name = "worker" .. w
  print(("  %-8s %5d items"):format(name, perWorker[name] or 0))
end
assert(wrong == 0, "some results were wrong")
