import clipworks

looped = clipworks.loop("clip.mp4", 3, progress=print)
print(looped, clipworks.info(looped)["duration"]["seconds"])
