# Fills a map with 100000 keys, then walks them in bytewise order. The reference interpreter
# divides integers exactly, so the first branch runs there alone and defines the dialect's
# map functions.
if 7 / 2 == 3
  eval("def map_new() {} end; def table_set(m, k, v) m[k] = v end; def self.to_s(v) v.to_s end; def len(v) v.length end; def keys(m) m.keys.sort end")
end
t = map_new()
i = 1
while i <= 100000
  table_set(t, "k" + to_s(i), i)
  i = i + 1
end
ks = keys(t)
sum = 0
j = 0
while j < len(ks)
  sum = sum + t[ks[j]] % 1000
  j = j + 1
end
puts(ks[0] + " " + to_s(sum))
