-- % truncates toward zero: the result takes the sign of the dividend.
print(-7 % 3, 7 % -3, -7 % -3, 7 % 3)
print(5 % 3.5, 7.5 % 2.5, -5.5 % 2)
print(pcall(function() return 1 % 0 end))
print(pcall(function() return 1 / 0.0000000000000001 end))
