# Integers are 64 bits and wrap around instead of growing.
puts(9223372036854775807 + 1)
puts(-(-9223372036854775807 - 1))
puts(3037000500 * 3037000500)
puts(4611686018427387904 * 2 - 1)
