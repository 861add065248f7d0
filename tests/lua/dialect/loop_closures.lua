-- A loop body cannot make a closure; a function that the loop calls can.
print(pcall(function()
  for i = 1, 2 do local f = function() return i end end
end))
local function make(i) return function() return i * i end end
local fs = {}
for i = 1, 3 do fs[i] = make(i) end
print(fs[1](), fs[2](), fs[3]())
