-- string.format with %d, %i, %s and %%.
print(string.format("%d items", 3))
print(string.format("%i|%d|%d", -7, 0, 123456789))
print(string.format("%s and %s", "this", "that"))
print(string.format("%s %s %s", 1, true, nil))
print(string.format("100%%"))
print(string.format("%s=%d;", "x", 42) .. string.format("%s=%d;", "y", 7))
print(string.format("[%s]", ""))
print(string.format("%d%%", 50))
local rows = {{"apple", 3}, {"fig", 12}}
for _, r in ipairs(rows) do print(string.format("%s: %d", r[1], r[2])) end
print(string.format("%s", "no args beyond"))
print(string.format("plain text"))
print(string.format("%d", 3.0))
