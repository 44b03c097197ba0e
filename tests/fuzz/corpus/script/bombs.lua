function main(op)
  local s, t = 'x', {}
  while true do s = s .. s t[#t + 1] = s end
end
