render good.scene --out OUT
