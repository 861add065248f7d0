-- string.format in a loop: the integer-only route and the general walk.
-- i / 7 is a 32-bit float in OrvaneScript and a double here; the printed widths agree.
local n = 200000
local acc = 0
for i = 1, n do
  acc = acc + #string.format('%d/%d %d%%', i, n, i % 100)
end
print(acc)
acc = 0
for i = 1, n do
  acc = acc + #string.format('%-8s|%5.2f|%04x|%s', 'row', i / 7, i % 65536, i)
end
print(acc)
print(string.format('%-8s|%5.2f|%04x|%s', 'row', 100 / 7, 100, 100))
