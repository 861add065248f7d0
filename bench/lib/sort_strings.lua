-- table.sort of 100,000 strings, byte order.
local a = {}
local x = 777
for i = 1, 100000 do
  x = (x * 1103 + 12345) % 1000003
  a[#a + 1] = 'k' .. x .. '-' .. (i % 97)
end
table.sort(a)
print(a[1] .. ' ' .. a[50000] .. ' ' .. a[100000])
local ok = true
for i = 2, 100000 do
  if a[i - 1] > a[i] then ok = false end
end
print(ok)
