-- A float result that is whole becomes an integer; / always gives a float, whole or not.
print(1.5 + 1.5, 2.5 * 2, 0.5 - 0.5, 0.1 + 0.2 == 0.3)
print(6 / 2, 7 / 2, 6 / 2 + 1, 1 / 3)
print(2.0, 3.0 * 1, math.floor(2.7), math.max(1, 2.5))
local last
for i = 1.0, 3 do last = i end
print(last, tostring(1000000.0), tostring(0.1))
