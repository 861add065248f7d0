# Maps: counting words, reading them back in sorted key order, missing keys.
# The reference interpreter divides integers exactly, so this branch runs there alone and gives
# it the dialect's map functions.
if 7 / 2 == 3
  eval("def map_new() {} end; def table_set(m, k, v) m[k] = v end; def keys(m) m.keys.sort end; def len(v) v.length end; def self.to_s(v) v.to_s end")
end

words = ["the", "cat", "and", "the", "hat", "and", "the", "bat"]
counts = map_new()
i = 0
while i < len(words)
  w = words[i]
  if counts[w] == nil
    table_set(counts, w, 1)
  else
    table_set(counts, w, counts[w] + 1)
  end
  i = i + 1
end
ks = keys(counts)
i = 0
while i < len(ks)
  puts(ks[i] + " " + to_s(counts[ks[i]]))
  i = i + 1
end
puts(len(counts))
puts(counts["dog"] == nil)

squares = map_new()
n = 1
while n <= 200
  table_set(squares, "n" + to_s(n), n * n)
  n = n + 1
end
puts(squares["n12"])
puts(len(squares))
total = 0
ks = keys(squares)
i = 0
while i < len(ks)
  total = total + squares[ks[i]]
  i = i + 1
end
puts(total)
puts(ks[0])
puts(ks[len(ks) - 1])
