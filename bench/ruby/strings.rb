# Builds a string of 10000 digits one at a time. The reference interpreter divides integers
# exactly, so the first branch runs there alone and defines the dialect's to_s and len.
if 7 / 2 == 3
  eval("def self.to_s(v) v.to_s end; def len(v) v.length end")
end
s = ""
i = 1
while i <= 10000
  s = s + to_s(i % 10)
  i = i + 1
end
puts(len(s))
