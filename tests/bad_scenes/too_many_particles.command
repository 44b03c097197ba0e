run SCENE --memory 1G --out OUT
