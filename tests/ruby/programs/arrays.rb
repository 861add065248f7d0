# Arrays: literals, indexing, nesting, growing, joining with +, sorting by hand.
# The reference interpreter divides integers exactly, so this branch runs there alone and gives
# it the dialect's array functions.
if 7 / 2 == 3
  eval("def len(v) v.length end; def table_set(a, i, v) a[i] = v end; def table_insert(a, v) a.push(v) end; def self.to_s(v) v.to_s end")
end

def show(a)
  out = ""
  i = 0
  while i < len(a)
    if i > 0
      out = out + ","
    end
    out = out + to_s(a[i])
    i = i + 1
  end
  return out
end

def sort(a)
  n = len(a)
  i = 0
  while i < n
    j = 0
    while j < n - 1 - i
      if a[j] > a[j + 1]
        t = a[j]
        table_set(a, j, a[j + 1])
        table_set(a, j + 1, t)
      end
      j = j + 1
    end
    i = i + 1
  end
  return a
end

a = [5, 3, 9, 1, 7]
puts(a[0])
puts(a[4])
puts(len(a))
puts(show(a))
puts(show(sort(a)))
puts(show(a))
b = a + [10, 11]
puts(show(b))
puts(len(a))
m = [[1, 2], [3, [4, 5]]]
puts(m[1][1][0])
puts(len(m[1]))
squares = []
i = 0
while i < 10
  table_insert(squares, i * i)
  i = i + 1
end
puts(show(squares))
sum = 0
i = 0
while i < len(squares)
  sum = sum + squares[i]
  i = i + 1
end
puts(sum)
puts([1, 2, 3] == [1, 2, 3])
puts([1, 2] == [2, 1])
grid = [[0, 0, 0], [0, 0, 0]]
table_set(grid[1], 2, 9)
puts(grid[1][2])
puts(grid[0][2])
