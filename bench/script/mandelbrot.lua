local inside = 0
for py = 0, 199 do
  local ci = py * 0.01 - 1.0
  for px = 0, 199 do
    local cr = px * 0.015 - 2.0
    local zr, zi, k = 0.0, 0.0, 0
    while k < 50 and zr * zr + zi * zi < 4.0 do
      local t = zr * zr - zi * zi + cr
      zi = 2.0 * zr * zi + ci
      zr = t
      k = k + 1
    end
    if k == 50 then inside = inside + 1 end
  end
end
print(inside)
