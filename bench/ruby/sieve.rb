# Primes below a million. The reference interpreter divides integers exactly, so the first branch
# runs there alone and gives it the one library function of the dialect that the sieve uses.
if 7 / 2 == 3
  eval("def table_set(a, i, v) a[i] = v end")
end
n = 1000000
flags = []
i = 0
while i <= n
  table_set(flags, i, true)
  i = i + 1
end
table_set(flags, 0, false)
table_set(flags, 1, false)
i = 2
while i * i <= n
  if flags[i]
    j = i * i
    while j <= n
      table_set(flags, j, false)
      j = j + i
    end
  end
  i = i + 1
end
count = 0
i = 0
while i <= n
  if flags[i]
    count = count + 1
  end
  i = i + 1
end
puts(count)
