-- An uncaught error object is not a string, even with __tostring.
print("before")
error(setmetatable({}, {__tostring = function() return "custom error object" end}))
