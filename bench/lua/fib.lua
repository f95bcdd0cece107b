-- Recursion: naive Fibonacci, dominated by Lua-to-Lua calls and returns.
local function fib(n)
  if n < 2 then return n end
  return fib(n - 1) + fib(n - 2)
end

local total = 0
for _ = 1, 3 do total = total + fib(32) end
print(total)
