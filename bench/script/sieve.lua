local n = 1000000
local flags = {}
for i = 1, n do flags[i] = true end
flags[1] = false
local i = 2
while i * i <= n do
  if flags[i] then
    local j = i * i
    while j <= n do
      flags[j] = false
      j = j + i
    end
  end
  i = i + 1
end
local count = 0
for i = 1, n do
  if flags[i] then count = count + 1 end
end
print(count)
