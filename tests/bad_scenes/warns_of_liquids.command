check SCENE
