run good.scene --out /proc/nowhere/out
