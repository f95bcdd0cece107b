-- Floating point with table fields: a small n-body simulation.
local sqrt = math.sqrt
local pi = 3.141592653589793
local solarMass = 4 * pi * pi
local daysPerYear = 365.24

local bodies = {
  {x = 0, y = 0, z = 0, vx = 0, vy = 0, vz = 0, mass = solarMass},
  {x = 4.84143144246472090e+00, y = -1.16032004402742839e+00, z = -1.03622044471123109e-01,
   vx = 1.66007664274403694e-03 * daysPerYear, vy = 7.69901118419740425e-03 * daysPerYear,
   vz = -6.90460016972063023e-05 * daysPerYear, mass = 9.54791938424326609e-04 * solarMass},
  {x = 8.34336671824457987e+00, y = 4.12479856412430479e+00, z = -4.03523417114321381e-01,
   vx = -2.76742510726862411e-03 * daysPerYear, vy = 4.99852801234917238e-03 * daysPerYear,
   vz = 2.30417297573763929e-05 * daysPerYear, mass = 2.85885980666130812e-04 * solarMass},
  {x = 1.28943695621391310e+01, y = -1.51111514016986312e+01, z = -2.23307578892655734e-01,
   vx = 2.96460137564761618e-03 * daysPerYear, vy = 2.37847173959480950e-03 * daysPerYear,
   vz = -2.96589568540237556e-05 * daysPerYear, mass = 4.36624404335156298e-05 * solarMass},
  {x = 1.53796971148509165e+01, y = -2.59193146099879641e+01, z = 1.79258772950371181e-01,
   vx = 2.68067772490389322e-03 * daysPerYear, vy = 1.62824170038242295e-03 * daysPerYear,
   vz = -9.51592254519715870e-05 * daysPerYear, mass = 5.15138902046611451e-05 * solarMass},
}

local function advance(dt)
  local n = #bodies
  for i = 1, n do
    local bi = bodies[i]
    local bix, biy, biz, bimass = bi.x, bi.y, bi.z, bi.mass
    local bivx, bivy, bivz = bi.vx, bi.vy, bi.vz
    for j = i + 1, n do
      local bj = bodies[j]
      local dx, dy, dz = bix - bj.x, biy - bj.y, biz - bj.z
      local distanceSquared = dx * dx + dy * dy + dz * dz
      local magnitude = dt / (distanceSquared * sqrt(distanceSquared))
      local bjm = bj.mass * magnitude
      bivx, bivy, bivz = bivx - dx * bjm, bivy - dy * bjm, bivz - dz * bjm
      local bim = bimass * magnitude
      bj.vx, bj.vy, bj.vz = bj.vx + dx * bim, bj.vy + dy * bim, bj.vz + dz * bim
    end
    bi.vx, bi.vy, bi.vz = bivx, bivy, bivz
    bi.x, bi.y, bi.z = bix + dt * bivx, biy + dt * bivy, biz + dt * bivz
  end
end

local function energy()
  local e = 0
  for i = 1, #bodies do
    local bi = bodies[i]
    e = e + 0.5 * bi.mass * (bi.vx * bi.vx + bi.vy * bi.vy + bi.vz * bi.vz)
    for j = i + 1, #bodies do
      local bj = bodies[j]
      local dx, dy, dz = bi.x - bj.x, bi.y - bj.y, bi.z - bj.z
      e = e - bi.mass * bj.mass / sqrt(dx * dx + dy * dy + dz * dz)
    end
  end
  return e
end

for _ = 1, 100000 do advance(0.01) end
print(string.format("%.9f", energy()))
