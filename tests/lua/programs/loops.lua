-- Loops: numeric for with steps, while with break, nesting, early return, a sieve.
local s = 0
for i = 1, 100 do s = s + i end
print(s)
for i = 10, 1, -3 do io.write(i, " ") end
print()
for i = 1, 0 do print("never") end
local n = 0
while true do
  n = n + 1
  if n >= 7 then break end
end
print(n)
local found
for i = 1, 10 do
  for j = 1, 10 do
    if i * j == 42 then found = i .. "x" .. j break end
  end
  if found then break end
end
print(found)
local function firstOver(list, limit)
  for i, v in ipairs(list) do
    if v > limit then return i, v end
  end
  return nil
end
print(firstOver({1, 5, 9, 13}, 6))
print(firstOver({1, 2}, 6))
local limit = 100
local sieve = {}
for i = 2, limit do sieve[i] = true end
local i = 2
while i * i <= limit do
  if sieve[i] then
    for j = i * i, limit, i do sieve[j] = false end
  end
  i = i + 1
end
local primes = {}
for k = 2, limit do if sieve[k] then primes[#primes + 1] = k end end
print(#primes, primes[#primes])
local collatz = 27
local steps = 0
while collatz ~= 1 do
  if collatz % 2 == 0 then collatz = (collatz - collatz % 2) / 2 else collatz = 3 * collatz + 1 end
  steps = steps + 1
end
print(steps)
