-- Recursion: plain, mutual, with accumulators and on trees.
local function fib(n)
  if n < 2 then return n end
  return fib(n - 1) + fib(n - 2)
end
print(fib(20))

local function ack(m, n)
  if m == 0 then return n + 1 end
  if n == 0 then return ack(m - 1, 1) end
  return ack(m - 1, ack(m, n - 1))
end
print(ack(2, 3))

local isEven, isOdd
function isEven(n) if n == 0 then return true end return isOdd(n - 1) end
function isOdd(n) if n == 0 then return false end return isEven(n - 1) end
print(isEven(10), isOdd(7), isEven(7))

local function hanoi(n, from, to, via, moves)
  if n == 0 then return moves end
  moves = hanoi(n - 1, from, via, to, moves)
  moves = moves + 1
  return hanoi(n - 1, via, to, from, moves)
end
print(hanoi(10, "a", "c", "b", 0))

local function tree(depth)
  if depth == 0 then return {value = 1} end
  return {value = depth, left = tree(depth - 1), right = tree(depth - 1)}
end
local function sum(node)
  if node == nil then return 0 end
  return node.value + sum(node.left) + sum(node.right)
end
print(sum(tree(8)))

local function gcd(a, b)
  if b == 0 then return a end
  return gcd(b, a % b)
end
print(gcd(1071, 462), gcd(17, 5))

local function power(base, exponent)
  if exponent == 0 then return 1 end
  return base * power(base, exponent - 1)
end
print(power(3, 10), power(2, 30))
