-- os.exit from inside protected calls and a coroutine ends the process with its status.
io.write("exiting\n")
io.stdout:flush()
pcall(coroutine.wrap(function() pcall(os.exit, 3) end))
print("not reached")
