-- An error raised in a coroutine and rethrown by coroutine.wrap reaches the top.
local generator = coroutine.wrap(function()
  coroutine.yield(1)
  error("generator failed")
end)
print(generator())
print(generator())
