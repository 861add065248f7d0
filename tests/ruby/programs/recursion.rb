# Recursion: Fibonacci, Ackermann, Euclid, towers of Hanoi and two functions that call each other.
def fib(n)
  if n < 2
    return n
  end
  return fib(n - 1) + fib(n - 2)
end

def ack(m, n)
  if m == 0
    return n + 1
  end
  if n == 0
    return ack(m - 1, 1)
  end
  return ack(m - 1, ack(m, n - 1))
end

def gcd(a, b)
  if b == 0
    return a
  end
  return gcd(b, a % b)
end

def hanoi(n)
  if n == 0
    return 0
  end
  return 2 * hanoi(n - 1) + 1
end

def is_even(n)
  if n == 0
    return true
  end
  return is_odd(n - 1)
end

def is_odd(n)
  if n == 0
    return false
  end
  return is_even(n - 1)
end

def power(b, e)
  if e == 0
    return 1
  end
  return b * power(b, e - 1)
end

puts(fib(0))
puts(fib(1))
puts(fib(20))
puts(ack(0, 0))
puts(ack(2, 3))
puts(ack(3, 3))
puts(ack(3, 5))
puts(gcd(1071, 462))
puts(gcd(17, 5))
puts(hanoi(20))
puts(is_even(300))
puts(is_odd(301))
puts(is_even(7))
puts(power(3, 13))
puts(power(2, 62))
