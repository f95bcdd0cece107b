-- Helpers of the test scripts, loaded before each of them.

-- Snippets run with the bindings of T visible as globals (and writing to the real globals),
-- under the chunk name "t", so that error texts read "t:1: ...".
local snippetEnv = setmetatable({}, {
  __index = function(_, name) if T[name] ~= nil then return T[name] end return _G[name] end,
  __newindex = _G,
})

-- The first result of running code, or its error value.
function outcome(code)
  local chunk, message = loadstring(code, "=t")
  if not chunk then return message end
  return select(2, pcall(setfenv(chunk, snippetEnv)))
end

-- Each case is {code, expected outcome}.
function cases(list)
  for i, case in ipairs(list) do
    local got = outcome(case[1])
    if got ~= case[2] then
      error(("case %d: %s\n  expected: %q\n  got:      %q"):format(i, case[1], tostring(case[2]), tostring(got)), 2)
    end
  end
end

-- Asserts that a and b are equal, naming both when they are not.
function same(a, b, what)
  if a ~= b then error(("%s: expected %q, got %q"):format(what or "value", tostring(b), tostring(a)), 2) end
end

-- Every argument as text, separated by blanks.
function all(...)
  local texts = {}
  for i = 1, select("#", ...) do texts[i] = tostring((select(i, ...))) end
  return table.concat(texts, " ")
end
