local function inner() error("fatal error") end
local function outer() inner() end
print("before")
outer()
print("not reached")
