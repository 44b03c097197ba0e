run SCENE --out OUT --strict
