local s = ''
for i = 1, 10000 do
  s = s .. tostring(i % 10)
end
print(#s)
