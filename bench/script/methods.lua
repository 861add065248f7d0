local body = {x = 0, y = 0, vx = 3, vy = 5, hits = 0}
function body.advance(self, dt)
  self.x = (self.x + self.vx * dt) % 10007
  self.y = (self.y + self.vy * dt) % 10009
end
function body.bounce(self, limit)
  if self.x > limit then self.hits = self.hits + 1 end
end
for i = 1, 500000 do
  body:advance(i % 3)
  body:bounce(5000)
end
print(body.x .. ' ' .. body.y .. ' ' .. body.hits)
