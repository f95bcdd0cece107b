-- The worker side of workers.lua: takes jobs until told to stop.

-- Where the time goes: a sum over size terms.
local function crunch(size)
  local sum = 0
  for i = 1, size do
    sum = sum + (i * 7) % 13
  end
  return sum
end

local function handle(job)
  local half = math.floor(job.size / 2)
  local stats = { id = job.id, size = job.size, parts = { half, job.size - half } }
  local factor = 1
  local value = crunch(stats.parts[1]) + crunch(stats.parts[2])
  return value * factor
end

return function(name, jobs, results)
  while true do
    local job = jobs:dequeue()
    if job.stop then break end
    results:enqueue({ worker = name, label = job.label, value = handle(job) })
  end
end
