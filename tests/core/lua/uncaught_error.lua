-- An uncaught string error: the interpreter prints it with a traceback and exits with 1.
local function inner() error("fatal error") end
local function outer() inner() end
print("before")
outer()
print("not reached")
