local n = 0
t = {}
function main(op) n = n + 1 t.n = n _ENV = t return n end
