-- # counts up to the first hole: {1, nil, 3} has length 1.
local t = {1, 2, 3}
t[2] = nil
print(#t, #{1, nil, 3}, #{nil, 2})
