# `/` always gives a float, and a float that holds a whole number prints without a point.
puts(7 / 2)
puts(6 / 2)
puts(1 / 3)
puts(1 + 2.0)
puts(1000000 * 1.0)
def inverse(x) return 1 / x end
puts(pcall(inverse, 0))
