# Building strings: joining, numbers as text, comparing, taking bytes out by index.
# The reference interpreter divides integers exactly, so this branch runs there alone and gives
# it the dialect's to_s and len.
if 7 / 2 == 3
  eval("def self.to_s(v) v.to_s end; def len(v) v.length end")
end

def repeat(text, n)
  out = ""
  i = 0
  while i < n
    out = out + text
    i = i + 1
  end
  return out
end

def reverse(text)
  out = ""
  i = len(text) - 1
  while i >= 0
    out = out + text[i]
    i = i - 1
  end
  return out
end

def count_of(text, letter)
  n = 0
  i = 0
  while i < len(text)
    if text[i] == letter
      n = n + 1
    end
    i = i + 1
  end
  return n
end

s = ""
i = 0
while i < 100
  s = s + to_s(i % 10)
  i = i + 1
end
puts(s)
puts(len(s))
puts(repeat("ab", 5))
puts(reverse("stressed"))
puts(count_of("mississippi", "s"))
puts("x=" + to_s(42) + ", y=" + to_s(-7))
puts("apple" < "banana")
puts("Zebra" < "apple")
puts("abc" == "abc")
puts("abc" != "abd")
puts("tab\there")
puts('single \'quoted\'')
puts("back\\slash")
line = ""
n = 1
while n <= 5
  line = line + repeat("*", n) + " "
  n = n + 1
end
puts(line)
