-- Floating point: escape-time iteration over a grid of the Mandelbrot set.
local size, maxIterations = 600, 50
local inside = 0
for y = 0, size - 1 do
  local ci = 2.0 * y / size - 1.0
  for x = 0, size - 1 do
    local cr = 2.0 * x / size - 1.5
    local zr, zi = 0.0, 0.0
    local escaped = false
    for _ = 1, maxIterations do
      local zr2, zi2 = zr * zr, zi * zi
      if zr2 + zi2 > 4.0 then escaped = true break end
      zi = 2.0 * zr * zi + ci
      zr = zr2 - zi2 + cr
    end
    if not escaped then inside = inside + 1 end
  end
end
print(inside)
