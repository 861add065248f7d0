-- Closures and upvalues: counters, shared variables, factories called from loops.
local function counter(start)
  local n = start
  local function inc(by) n = n + by return n end
  local function get() return n end
  return inc, get
end

local inc, get = counter(10)
inc(1) inc(2)
print(get())
local inc2, get2 = counter(100)
inc2(5)
print(get(), get2())

local function adder(x)
  return function(y) return x + y end
end
local adders = {}
for i = 1, 5 do adders[i] = adder(i * 10) end
local total = 0
for i = 1, 5 do total = total + adders[i](i) end
print(total)

local function compose(f, g)
  return function(x) return f(g(x)) end
end
local double = function(x) return x * 2 end
local square = function(x) return x * x end
print(compose(double, square)(3), compose(square, double)(3))

local function memo(f)
  local cache = {}
  return function(n)
    local hit = cache[n]
    if hit == nil then
      hit = f(n)
      cache[n] = hit
    end
    return hit
  end
end
local calls = 0
local slow = memo(function(n) calls = calls + 1 return n * n end)
print(slow(4), slow(4), slow(5), calls)

local function makeStack()
  local items = {}
  local stack = {}
  function stack.push(v) items[#items + 1] = v end
  function stack.pop() local v = items[#items] items[#items] = nil return v end
  function stack.size() return #items end
  return stack
end
local s = makeStack()
s.push("a") s.push("b") s.push("c")
print(s.pop(), s.size(), s.pop(), s.pop(), s.size())

local x = 1
local function readX() return x end
x = 42
print(readX())
