# pcall returns one array, [true, value] or [false, message]; messages of the VM carry a location.
def risky(n)
  if n < 0 then error("negative") end
  return n * 2
end
def divide(a, b) return a / b end
puts(pcall(risky, 4))
puts(pcall(risky, -1))
puts(pcall(divide, 1, 0))
puts(pcall(5))
puts(pcall(error))
