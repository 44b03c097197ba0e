-- A script with one end too many.
function main(op)
  return cell_value * intensity
  end end
