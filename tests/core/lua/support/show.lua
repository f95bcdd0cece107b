-- Describes values and protected-call results without addresses, so that two interpreters
-- running the same script print the same text.
local show = {}

function show.value(v)
  local kind = type(v)
  if kind == "string" then return string.format("%q", v) end
  if kind == "number" or kind == "boolean" or kind == "nil" then return tostring(v) end
  return kind
end

function show.values(...)
  local parts = {}
  for i = 1, select("#", ...) do parts[i] = show.value((select(i, ...))) end
  return table.concat(parts, ", ")
end

-- Prints the label and what pcall(f, ...) returns.
function show.check(label, f, ...) print(label .. ": " .. show.values(pcall(f, ...))) end

-- Runs each snippet (its text is its chunk name) and prints what it returns or raises.
function show.run(snippets)
  for _, code in ipairs(snippets) do show.check(code, assert(loadstring(code))) end
end

return show
