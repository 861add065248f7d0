-- gsub searches afresh at every cursor (so ^ anchors each time), replaces literally, and - always repeats lazily.
print(string.gsub("aaa", "^a", "b"))
print(string.gsub("a b", "%s", "%1"))
print(string.gsub("abc", "", "-"))
print(string.match("2024-01-15", "(%d+)-(%d+)"))
