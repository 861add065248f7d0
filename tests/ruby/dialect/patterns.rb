# Patterns are a few fixed words ("%d+", "%d", "(%a+)%-(%d+)"); any other pattern is plain text.
puts(string_find("ab12c", "%d+"), string_find("a.c", "."), string_find("abc", "[a]"))
puts(string_match("x foo-12 y", "(%a+)%-(%d+)"))
puts(string_gsub("a1b22", "%d+", "#"), string_gsub("a1b22", "%d", "#"), string_gsub("a.b", ".", "%"))
puts(string_gmatch("a1b22c333", "%d+"))
puts(string_sub("hello", -3, -2), string_byte("AZ", 1, -1))
