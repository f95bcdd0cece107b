print("never runs")
local x = = 1
