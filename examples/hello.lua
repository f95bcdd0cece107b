-- The smallest tqhost script: prints a greeting and the arguments it was given.
local args = { ... }
print("Hello from the " .. debug.getregistry().universeName .. " universe of TqKernel")
print(("%d argument(s): %s"):format(#args, table.concat(args, ", ")))
