# A function reads the global of a name until its own assignment to that name has run.
x = "global"
def f()
  before = x
  x = "local"
  return [before, x]
end
puts(f())
puts(x)
