# Loops and integer arithmetic: sums, Collatz steps, digit sums, primes by trial division.
# The reference interpreter divides integers exactly, so this branch runs there alone and gives
# it the dialect's math_floor.
if 7 / 2 == 3
  eval("def math_floor(x) x.floor end")
end

def collatz(n)
  steps = 0
  while n != 1
    if n % 2 == 0
      n = math_floor(n / 2)
    else
      n = 3 * n + 1
    end
    steps = steps + 1
  end
  return steps
end

def digit_sum(n)
  s = 0
  while n > 0
    s = s + n % 10
    n = math_floor(n / 10)
  end
  return s
end

def is_prime(n)
  if n < 2
    return false
  end
  d = 2
  while d * d <= n
    if n % d == 0
      return false
    end
    d = d + 1
  end
  return true
end

total = 0
i = 1
while i <= 1000
  total = total + i * i
  i = i + 1
end
puts(total)

longest = 0
best = 0
i = 1
while i < 3000
  c = collatz(i)
  if c > longest
    longest = c
    best = i
  end
  i = i + 1
end
puts(best)
puts(longest)

puts(digit_sum(9876543210))
puts(digit_sum(1000000007))

count = 0
i = 0
while i < 5000
  if is_prime(i)
    count = count + 1
  end
  i = i + 1
end
puts(count)

x = 1
k = 0
while k < 60
  x = x * 2
  k = k + 1
end
puts(x)
puts(x - 1 + x)
puts(-17 * 3 + 100 - 2 * -4)
puts(12345678 * 87654321)
puts(2 < 3)
puts(3 <= 2)
puts(10 != 10)
puts(!(1 == 2))
