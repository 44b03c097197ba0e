-- A script with a slip of the pen in its third line.
function main(op)
  return intensty * cell_value
  end end
