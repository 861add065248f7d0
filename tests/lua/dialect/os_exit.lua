-- os.exit ends the run as a success with its code; pcall does not stop it.
print("before")
pcall(os.exit, 3)
print("after")
