-- An error is always a string, without a position under pcall; the level is ignored.
print(pcall(function() error("plain") end))
print(pcall(function() error(42, 2) end))
print(pcall(error))
print(pcall(function() local t = nil return t.x end))
print(pcall(function() assert(false) end))
