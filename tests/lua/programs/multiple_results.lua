-- Multiple results: adjustment in assignments, argument lists, table constructors and returns.
-- (The dialect has no varargs; functions take fixed parameters.)
local function three() return 1, 2, 3 end
local function none() end
local function pass(a, b, c, d) return a, b, c, d end

local a, b, c, d = three()
print(a, b, c, d)
local x, y = three(), 10
print(x, y)
print(three())
print(three(), "end")
print(pass(three()))
print(pass(0, three()))
print(pass(three(), three()))
local t = {three(), (three())}
print(#t, t[1], t[2])
local e = none()
print(e)
print(pass(none(), 5))
local p, q = 1
print(p, q)
local function swap(m, n) return n, m end
local s1, s2 = swap(swap(1, 2))
print(s1, s2)
local function minmax(list)
  local lo, hi = list[1], list[1]
  for i = 2, #list do
    if list[i] < lo then lo = list[i] end
    if list[i] > hi then hi = list[i] end
  end
  return lo, hi
end
local lo, hi = minmax({5, 3, 9, 1, 7})
print(lo, hi)
local function split(n) return n % 10, n - n % 10 end
local ones, rest = split(47)
print(ones, rest)
local i, j = 1, 2
i, j = j, i
print(i, j)
