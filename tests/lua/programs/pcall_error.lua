-- pcall and error: results of protected calls, error values, assert, nesting.
print(pcall(function() return 1, 2, 3 end))
print(pcall(error, "plain message"))
print(pcall(function() error("level zero", 0) end))
print(pcall(assert, false, "assert message"))
print(pcall(assert, nil))
print(pcall(assert, 1, "kept"))
print(pcall(function() local x = nil return x.field end) == false)
local okAdd = pcall(function() return {} + 1 end)
local okLen = pcall(function() return #nil end)
local okSet = pcall(function() local t = nil t.x = 1 end)
print(okAdd, okLen, okSet)
print(pcall(pcall, error, "inner"))

local function risky(n)
  if n > 3 then error("too big", 0) end
  return n * 2
end
for i = 2, 5 do
  local ok, result = pcall(risky, i)
  print(i, ok, result)
end

local function rethrow()
  local ok, message = pcall(error, "first", 0)
  error(message .. " again", 0)
end
print(pcall(rethrow))

local ok, value = pcall(function()
  local inner, message = pcall(function() error("deep", 0) end)
  return tostring(inner) .. "/" .. message
end)
print(ok, value)

local attempts = 0
local function flaky()
  attempts = attempts + 1
  if attempts < 3 then error("retry", 0) end
  return "done after " .. attempts
end
local result
repeat_count = 0
while true do
  local ok2, r = pcall(flaky)
  if ok2 then result = r break end
end
print(result)
print(pcall(error, 42))
