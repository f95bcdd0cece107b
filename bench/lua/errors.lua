-- Errors: raising and catching in a loop, with string and table error values.
local caught = 0
for _ = 1, 300000 do
  local ok, message = pcall(error, "x")
  if not ok and message == "x" then caught = caught + 1 end
end

local failure = {code = 7}
local function fail(n)
  if n > 0 then error(failure) end
  return n
end
for i = 1, 300000 do
  local ok, value = pcall(fail, i)
  if not ok and value.code == 7 then caught = caught + 1 end
end
print(caught)
