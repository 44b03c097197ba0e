run good.scene --set scene.cellsize=1 --out OUT
