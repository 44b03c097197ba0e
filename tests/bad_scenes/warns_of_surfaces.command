check SCENE --strict
