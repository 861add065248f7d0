-- pairs, ipairs and gmatch give iterator values, which only a generic for can step.
print(type(pairs({})), type(ipairs({})), type(string.gmatch("a", "a")))
print(pcall(function() local it = pairs({}) return it() end))
print(pcall(function() for k in next, {} do end end))
local t = {1, 2, 3}
local n = 0
for i, v in ipairs(t) do
  t[#t + 1] = v
  n = n + 1
end
print(n, #t)
