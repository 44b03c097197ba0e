function main(op) local i <const> = 3 do goto done end ::done:: error({i}) end
