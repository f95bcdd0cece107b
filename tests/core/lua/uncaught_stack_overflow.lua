local function recurse() return 1 + recurse() end
recurse()
