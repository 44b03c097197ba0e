nodes gridemiter
