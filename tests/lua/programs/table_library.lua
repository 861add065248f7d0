-- The table library: concat, remove and sort, with and without comparators.
local t = {"a", "b", "c", "d"}
print(table.concat(t), table.concat(t, ", "), table.concat({}, "x") == "")
print(table.concat({1, 2, 3}, "-"), table.concat({1.5, "x", 2}, " "))
print(table.remove(t), #t, table.concat(t, ""))
print(table.remove(t, 1), #t, table.concat(t, ""))
print(table.remove(t, 2), #t, table.concat(t, ""))
print(table.remove({}))
local numbers = {5, 2, 8, 1, 9, 3, 7, 4, 6, 10}
table.sort(numbers)
print(table.concat(numbers, " "))
table.sort(numbers, function(m, n) return m > n end)
print(table.concat(numbers, " "))
local names = {"pear", "apple", "fig", "banana", "cherry"}
table.sort(names)
print(table.concat(names, " "))
table.sort(names, function(m, n) return #m < #n or (#m == #n and m < n) end)
print(table.concat(names, " "))
local records = {{n = "c", v = 3}, {n = "a", v = 1}, {n = "b", v = 2}}
table.sort(records, function(m, n) return m.v < n.v end)
local out = {}
for _, r in ipairs(records) do out[#out + 1] = r.n end
print(table.concat(out, ""))
local big = {}
for i = 1, 200 do big[i] = (i * 37) % 101 end
table.sort(big)
local sorted = true
for i = 2, #big do if big[i - 1] > big[i] then sorted = false end end
print(sorted, big[1], big[200])
local queue = {}
for i = 1, 5 do queue[#queue + 1] = i end
local drained = {}
while #queue > 0 do drained[#drained + 1] = table.remove(queue, 1) end
print(table.concat(drained, ","))
