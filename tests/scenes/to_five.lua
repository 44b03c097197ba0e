-- Cells that hold anything get the intensity.
function main(op)
  if cell_value > 0 then
    return intensity
  end
  return 0
end
