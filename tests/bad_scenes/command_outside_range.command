run good.scene --frames 5:9 --out OUT
