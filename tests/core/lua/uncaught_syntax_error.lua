-- Does not compile: the interpreter reports the syntax error and exits with 1.
print("never runs")
local x = = 1
