local up = Vector(0, 1, 0)
function main(op)
  local p = -physical_pos * 2 + up / 3 - Cross(up, physical_pos)
  if p == up then return Dot(p, up) end
  return Length(Unit(p)) + Noise(p, op.time) + p.x
end
