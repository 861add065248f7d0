-- print shows tables deep, through the public bridge; tostring shows an address.
print({1, 2, {3, {}}}, {}, {a = "x"})
local t = {1, 2}
t[4] = 4
print(t[4], #t)
print(string.sub(tostring(t), 1, 7))
print(pcall(print, io.stdout))
