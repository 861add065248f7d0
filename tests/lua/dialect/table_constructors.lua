-- A call in a table constructor gives one value; parentheses around a call change nothing.
local function three() return 1, 2, 3 end
print(#{three()}, #{three(), three()})
print((three()))
local a, b = (three())
print(a, b)
