-- An uncaught stack overflow: the traceback is shortened in the middle.
local function recurse() return 1 + recurse() end
recurse()
