# Maps come from map_new and change through table_set; the keys 1 and "1" are one entry.
m = map_new()
table_set(m, 1, "one")
table_set(m, "1", "uno")
table_set(m, true, "yes")
puts(len(m), m[1], m["true"], m["missing"])
puts(keys(m))
a = [1]
table_set(a, 3, 4)
puts(a)
