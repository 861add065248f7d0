# `%` truncates: the result has the sign of the dividend, and the lowest integer % -1 is 0.
puts(7 % 3, -7 % 3, 7 % -3, -7 % -3)
puts((-9223372036854775807 - 1) % -1)
puts(5.5 % 2, -5.5 % 2)
