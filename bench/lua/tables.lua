-- Tables: appends, indexed and keyed reads, and sorting with and without a comparator.
local seed = 42
local function random(n)
  seed = (seed * 1103515245 + 12345) % 2147483648
  return seed % n
end

local checksum = 0
for round = 1, 4 do
  local list = {}
  for i = 1, 50000 do table.insert(list, random(1000000)) end
  for i = 1, #list do list[#list + 1 - i] = list[#list + 1 - i] + i end

  local byName = {}
  for i = 1, 20000 do byName["key" .. (i % 5000)] = i end
  for i = 1, 20000 do checksum = checksum + (byName["key" .. (i % 5000)] or 0) end

  table.sort(list)
  local copy = {}
  for i = 1, #list do copy[i] = list[i] end
  table.sort(copy, function(a, b) return a > b end)
  checksum = checksum + list[1] + copy[1] + list[#list] + round
end
print(checksum)
