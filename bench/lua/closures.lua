-- Closures: creating closures with upvalues and calling them.
local function counter(start)
  local n = start
  return function(step)
    n = n + step
    return n
  end
end

local function compose(f, g)
  return function(x) return f(g(x)) end
end

local total = 0
for i = 1, 1000000 do
  local c = counter(i)
  c(1)
  local twice = compose(c, c)
  total = total + twice(2) % 1000
end
print(total)
