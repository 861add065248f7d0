local t = {}
for i = 1, 100000 do
  t['k' .. i] = i
end
local keys = {}
for k in pairs(t) do keys[#keys + 1] = k end
table.sort(keys)
local sum, first = 0, nil
for _, k in ipairs(keys) do
  if first == nil then first = k end
  sum = sum + t[k] % 1000
end
print(first .. ' ' .. sum)
