local s = 0
for i = 1, 10000000 do
  s = s + i % 7
end
print(s)
