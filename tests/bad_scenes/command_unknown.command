rum good.scene
