-- An integer and a float are equal within the double epsilon; two floats must match exactly.
print(1 == 1.0, 1 == 1.0000000000000002, 1.0 == 1.0000000000000002)
local t = {}
t[2.0] = "two"
print(t[2], pcall(function() t[2.5] = 1 end))
