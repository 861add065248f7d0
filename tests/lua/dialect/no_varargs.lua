-- There are no varargs: arguments beyond the parameters are dropped, missing ones are nil.
local function f(a, b) return a, b end
print(f(1, 2, 3, 4))
print(pcall(function() return f(1) end))
