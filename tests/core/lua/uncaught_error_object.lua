print("before")
error(setmetatable({}, {__tostring = function() return "custom error object" end}))
