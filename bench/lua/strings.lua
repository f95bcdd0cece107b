-- Strings: concatenation, pattern substitution and formatting.
local checksum = 0
for round = 1, 30 do
  local parts = {}
  for i = 1, 5000 do parts[#parts + 1] = "item" .. i .. ";" end
  local joined = table.concat(parts)

  local s = ""
  for i = 1, 500 do s = s .. string.char(65 + i % 26) end

  local replaced, count = joined:gsub("item(%d+)", "<%1>")
  local upper = joined:gsub("%a+", function(word) return word:upper() end)

  local formatted = {}
  for i = 1, 3000 do
    formatted[#formatted + 1] = string.format("%5d|%-8s|%8.3f|%x", i, "n" .. i, i / 7, i * 31)
  end
  checksum = checksum + #joined + #s + #replaced + count + #upper + #table.concat(formatted)
    + round
end
print(checksum)
