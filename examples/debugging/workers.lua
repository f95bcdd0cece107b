-- A program to try the debugger on: the main universe hands jobs to two worker
-- universes, "alpha" and "beta", each on its own thread, and prints what they send back.
-- The workers' code lives in worker.lua so that breakpoints can name its file and line.
--
--   tqhost --debug 9000 --stop-on-entry examples/debugging/workers.lua [JOBS]

local jobCount = tonumber((...)) or 6
local folder = debug.getinfo(1, "S").source:match("^@?(.*/)") or "./"
local workerFile = folder .. "worker.lua"

local jobs = newTransitQueue()
local results = newTransitQueue()
local workerSource = "return dofile(...)(select(2, ...))"
for _, name in ipairs({ "alpha", "beta" }) do
  spawnUniverse(name, workerSource, workerFile, name, jobs, results)
end

for id = 1, jobCount do
  jobs:enqueue({ id = id, size = 20000 * id, label = "job " .. id })
end
for _ = 1, 2 do jobs:enqueue({ stop = true }) end

local total = 0
for _ = 1, jobCount do
  local result = results:dequeue()
  total = total + result.value
  print(("%s: %s = %d"):format(result.worker, result.label, result.value))
end
print(("total %d"):format(total))
