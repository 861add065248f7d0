local function mix(a, b)
  return (a * 31 + b) % 65521
end
local function wrap(v, limit)
  local r = v % limit
  return r + 1
end
local function update(seed)
  local acc = seed
  local last = 0
  for j = 1, 2 do
    acc = mix(acc, j)
    last = wrap(acc, 97)
  end
  return acc + last
end
local total = 0
for i = 1, 1000000 do
  total = (total + update(i)) % 1000003
end
print(total)
