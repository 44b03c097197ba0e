function main(op)
  return cell_value + Noise(physical_pos.x, physical_pos.y, physical_pos.z)
end
