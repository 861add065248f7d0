-- Tables: construction, length, appending, iteration, nesting, keys of every kind.
local t = {10, 20, 30, name = "t", [5] = 50}
print(#t, t[1], t[3], t.name, t[5], t[4])

local squares = {}
for i = 1, 10 do squares[#squares + 1] = i * i end
print(#squares, squares[10])

local sum = 0
for i, v in ipairs(squares) do sum = sum + i * v end
print(sum)

local count = 0
for k, v in pairs({a = 1, b = 2, c = 3}) do count = count + v end
print(count)

local keys = {}
for k in pairs({x = 1, y = 2, z = 3, w = 4}) do keys[#keys + 1] = k end
table.sort(keys)
print(table.concat(keys, ","))

local grid = {}
for r = 1, 3 do
  grid[r] = {}
end
for r = 1, 3 do
  for c = 1, 3 do grid[r][c] = r * 10 + c end
end
print(grid[2][3], grid[3][1], #grid, #grid[1])

local mixed = {}
mixed[1] = "one"
mixed["1"] = "string one"
mixed[true] = "yes"
mixed[2.0] = "two"
print(mixed[1], mixed["1"], mixed[true], mixed[2])

local deep = {a = {b = {c = {d = "found"}}}}
print(deep.a.b.c.d, deep["a"]["b"].c["d"])

local sparse = {}
sparse[1] = 1
sparse[2] = 2
sparse[100] = 100
print(#sparse, sparse[100])

local copy = {}
for i, v in ipairs({5, 4, 3}) do copy[i] = v end
copy[#copy + 1] = 2
print(table.concat(copy, " "))

local counts = {}
for _, word in ipairs({"a", "b", "a", "c", "b", "a"}) do
  counts[word] = (counts[word] or 0) + 1
end
print(counts.a, counts.b, counts.c, counts.d)

local obj = {value = 3}
function obj.get(self) return self.value end
function obj:set(v) self.value = v end
obj:set(9)
print(obj:get(), obj.get(obj))

local removed = {1, 2, 3}
removed[#removed] = nil
print(#removed)
