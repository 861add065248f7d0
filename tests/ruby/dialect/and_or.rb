# `and`, `or`, `&&` and `||` evaluate both sides and give true or false, not an operand.
calls = [0]
def noisy(v)
  table_set(calls, 0, calls[0] + 1)
  return v
end
puts(true or noisy(false))
puts(false && noisy(true))
puts(calls[0])
puts(1 and "text")
puts(nil || 0)
