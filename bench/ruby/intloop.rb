# Sums i % 7 over ten million integers.
s = 0
i = 1
while i <= 10000000
  s = s + i % 7
  i = i + 1
end
puts(s)
