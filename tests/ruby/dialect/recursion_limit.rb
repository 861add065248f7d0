# Endless recursion ends in an error that pcall catches, not in a crash.
def down(n) return down(n + 1) end
puts(pcall(down, 0))
def deep(n)
  if n == 0 then return 0 end
  return deep(n - 1) + 1
end
puts(deep(1000))
