run SCENE --out OUT
