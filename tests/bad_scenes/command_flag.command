run good.scene --frame 0:3
