new plum
