-- Error values of every type keep their type and identity through pcall.
local show = dofile("support/show.lua")
local function raise(value) error(value) end
show.run {
  "error()", "error(nil)", "error(false)", "error(true)", "error(42, 0)", "error(42)", "error(2.5, 0)",
  "error('plain', 0)", "error('boom')", "error('a\\0b', 0)", "return select('#', pcall(error))",
  "local long = ('0123456789'):rep(500) local ok, m = pcall(error, long) return ok, #m, m == long",
}
for _, value in ipairs({{}, print, coroutine.create(function() end), newproxy()}) do
  local ok, message = pcall(raise, value)
  print(type(value), ok, type(message), message == value)
end

-- Error objects with __tostring: the object itself travels, tostring shows it.
local failure = setmetatable({code = 17}, {__tostring = function(self) return "Failure(" .. self.code .. ")" end})
local ok, message = pcall(raise, failure)
print("object", ok, message == failure, tostring(message), message.code)
local broken = setmetatable({}, {__tostring = function() error("tostring broke") end})
ok, message = pcall(raise, broken)
print("object whose __tostring fails", ok, message == broken)
show.check("tostring of it", tostring, broken)
local notText = setmetatable({}, {__tostring = function() return 99 end})
ok, message = pcall(raise, notText)
print("object whose __tostring gives a number", ok, message == notText, tostring(message))
show.check("print of it", print, notText)

show.run {
  "return pcall(error, 'inner')", "return pcall()", "return pcall(nil)",
  "local _, inner = pcall(error, 'first') error(inner, 0)",
}

-- A finalizer that fails raises its error from the collection that ran it.
collectgarbage("stop")
do getmetatable(newproxy(true)).__gc = function() error("finalizer failed", 0) end end
show.check("collect", collectgarbage, "collect")
collectgarbage("restart")
show.check("collect again", collectgarbage, "collect")
