-- # ... in a comment
local list, text = {1, 2, nil, 4, x = {}}, [==[ # ... ]==] .. "\z # \" ..." .. '\'#'
local function pass(...) local a, b = ... (pass or print)(...) return select('#', ...), ... end
function main(op)
  local t = {} t[#t + 1] = 2 ^ #t t['a' .. #t] = -#text t[{}] = nil t[5] = 1
  return #t + #{pass(1, #list.x, ...)} .. 3.e-1 .. 0x.8p+1 .. 1 ..2
end
