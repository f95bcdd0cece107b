-- Producer and consumer universes on their own threads over three queues: every message
-- arrives once, unchanged, and in order per producer and queue.
--   tqhost queue_stress.lua [MESSAGES PER PRODUCER]
local perProducer, producers = tonumber((...)) or 5000, 4
local message = [[
  local function expected(p, seq) return {seq, {p, ("x\0"):rep(seq % 40)}, flag = seq % 2 == 0} end
]]
local producer = message .. [[
  local p, queues, n = ...
  math.randomseed(p)
  for seq = 1, n do
    local qi = math.random(#queues)
    queues[qi]:enqueue({p = p, q = qi, seq = seq, value = expected(p, seq)})
  end
  for _, q in ipairs(queues) do q:enqueue({stop = true}) end
]]
local consumer = message .. [[
  local queues, first, results, producers = ...
  local stops, last, count, errors, deadline = 0, {}, 0, 0, os.time() + 60
  while stops < producers * #queues do
    assert(os.time() < deadline, "messages lost")
    for i, q in ipairs(queues) do
      local m = q:dequeue(true, 0.002)
      if m and m.stop then stops = stops + 1 elseif m then
        local key, want = m.p .. ":" .. m.q, expected(m.p, m.seq)
        local same = m.q == first + i - 1 and m.value[1] == want[1] and m.value[2][2] == want[2][2]
          and m.value.flag == want.flag
        errors = errors + ((same and (last[key] or 0) < m.seq) and 0 or 1)
        last[key], count = m.seq, count + 1
      end
    end
  end
  results:enqueue({count = count, errors = errors})
]]
local queues, results = {newTransitQueue(), newTransitQueue(), newTransitQueue()}, newTransitQueue()
spawnUniverse("consumer 1", consumer, {queues[1], queues[2]}, 1, results, producers)
spawnUniverse("consumer 2", consumer, {queues[3]}, 3, results, producers)
for p = 1, producers do spawnUniverse("producer " .. p, producer, p, queues, perProducer) end
local count, errors = 0, 0
for _ = 1, 2 do
  local r = results:dequeue(true, 120)
  count, errors = count + r.count, errors + r.errors
end
assert(count == producers * perProducer and errors == 0,
  ("%d of %d messages, %d wrong"):format(count, producers * perProducer, errors))
