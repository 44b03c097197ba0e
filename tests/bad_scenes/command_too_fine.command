run good.scene --set scene.cell_size=0.0002 --memory 1G --out OUT
