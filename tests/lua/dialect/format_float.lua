-- %f writes a default-formatted double; there are no widths, precisions or other tokens.
print(string.format("%f|%f|%f", 2, 3.14159265, 0.5))
print(string.format("%d", 3.9), string.format("%d", -3.9))
print(pcall(string.format, "%5d", 1))
print(pcall(string.format, "%x", 255))
print(pcall(string.format, "%d"))
