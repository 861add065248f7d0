-- A string reaches only the functions of the global table string, by method call.
print(("abc"):rep(2), ("hello"):sub(2, 3), ("a,b"):find(",", 1, true))
print(pcall(function() return ("abc"):upper() end))
string.shout = function(s) return s .. "!" end
print(("hey"):shout())
