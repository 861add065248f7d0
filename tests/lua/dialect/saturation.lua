-- Integer overflow takes the float path; a result of exactly 2 to the 63rd saturates.
local max = 9223372036854775807
print(max + 1, max * 2, -max - 1)
local min = -max - 1
print(-min, min - 1)
print(0xFFFFFFFFFFFFFFFF, 0x8000000000000000)
