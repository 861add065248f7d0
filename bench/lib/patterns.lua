-- gsub, find, match and gmatch over 1 MB of generated text.
-- Lua's gmatch is an iterator and gsub returns a count; the .ov side builds an array and a lone string.
local parts = {}
for i = 1, 40000 do
  parts[#parts + 1] = 'item-' .. i .. ' value=' .. (i * 7 % 1000) .. ' tag' .. (i % 13) .. '\n'
end
local text = table.concat(parts)
print(#text)
print(#(string.gsub(text, '%d+', '#')))
print(#(string.gsub(text, '(%a+)=', '%1:')))
local lines = {}
for line in string.gmatch(text, '[a-z0-9= -]+') do lines[#lines + 1] = line end
print(#lines)
local total, found = 0, 0
for i = 1, #lines do
  local line = lines[i]
  local name, number = string.match(line, '(%a+)%-(%d+)')
  total = total + tonumber(number)
  local s, e = string.find(line, 'value=%d+')
  if s then found = found + 1 end
  local v = string.match(line, 'value=(%d+)')
  total = total + tonumber(v)
end
print(total .. ' ' .. found)
local pos, hits = 1, 0
while hits < 2000 do
  local s, e = string.find(text, 'tag1[0-2]', pos)
  if not s then break end
  hits = hits + 1
  pos = e + 1
end
print(hits .. ' ' .. pos)
