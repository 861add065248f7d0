# load compiles text into a function that runs at top level, in the same globals, each call.
counter = 0
step = load("counter = counter + 1")
step()
step()
puts(step(), counter)
puts(pcall(load, "1 +", "snippet"))
