# Points of a 200 by 200 grid that stay bounded for 50 steps. `and` evaluates both sides here,
# which gives the same count.
inside = 0
py = 0
while py < 200
  ci = py * 0.01 - 1.0
  px = 0
  while px < 200
    cr = px * 0.015 - 2.0
    zr = 0.0
    zi = 0.0
    k = 0
    while k < 50 and zr * zr + zi * zi < 4.0
      t = zr * zr - zi * zi + cr
      zi = 2.0 * zr * zi + ci
      zr = t
      k = k + 1
    end
    if k == 50
      inside = inside + 1
    end
    px = px + 1
  end
  py = py + 1
end
puts(inside)
