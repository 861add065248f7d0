-- String functions with patterns: sub, rep, find, match, gmatch, gsub, and concatenation.
local s = "Hello, World"
print(#s, s:sub(1, 5), s:sub(-5), s:sub(8, -2), string.sub(s, 0), s:sub(20) == "")
print(string.rep("ab", 3), ("-"):rep(10), string.rep("x", 0) == "")
print(string.find(s, "World"), string.find(s, "o"), string.find(s, "o", 6))
print(string.find("a.b.c", ".", 1, true), string.find("a+b", "+", 1, true))
print(string.find(s, "xyz"), string.find("abc", "", 4))
print(string.find("key = value", "(%w+)%s*=%s*(%w+)"))
print(string.match("2024-01-15", "(%d+)%-(%d+)%-(%d+)"))
print(string.match("  trim me  ", "^%s*(.-)%s*$"))
print(string.match("abc123def", "%a+"), string.match("abc123def", "%d+"))
print(string.match("no digits", "%d+"))
print(string.match("[tag]", "%[(%a+)%]"))
print(string.match("x = 10", "[%a_]+"), string.match("hello_world42", "[%w_]+"))
print(string.match("vowels", "[aeiou]"), string.match("CAPS lower", "[^%s]+"))
local words = {}
for w in string.gmatch("the quick brown fox", "%a+") do words[#words + 1] = w end
print(#words, words[1], words[4])
local pairsSeen = {}
for k, v in string.gmatch("a=1, b=22, c=333", "(%w+)=(%w+)") do pairsSeen[#pairsSeen + 1] = k .. ":" .. v end
print(table.concat(pairsSeen, " "))
print(string.gsub("hello world", "o", "0"))
print(string.gsub("one two three", "%s", "_"))
print(string.gsub("abc", "%w", "[x]"))
print(string.gsub("a,b,,c", ",", ";"))
print(string.gsub("no match", "z", "y"))
local parts = {}
for i = 1, 5 do parts[#parts + 1] = tostring(i * i) end
print(table.concat(parts, "+"), "a" .. "b" .. 1 .. 2)
print(("x"):rep(3) .. "|" .. ("abc"):sub(2, 2))
print(tostring(12), tostring(-3), tostring(nil), tostring(false), tonumber("42") + 1, tonumber("0x1F"))
print(tonumber("10", 2), tonumber("ff", 16), tonumber("z", 36), tonumber("nope"), tonumber("12abc"))
