local function add(n) return function(m) return n + m end end
local three = add(3)
function main(op) local n = 0 for i = 1, 10 do n = three(n) end return n * intensity end
