-- No coercion between strings and numbers: arithmetic and ordering need real numbers.
print(pcall(function() return "10" + 1 end))
print(pcall(function() return 1 < "2" end))
print("10" .. 1, 1 .. 2, tonumber("10") + 1, 10 == "10")
