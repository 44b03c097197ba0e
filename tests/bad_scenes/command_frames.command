run good.scene --frames 3:1
