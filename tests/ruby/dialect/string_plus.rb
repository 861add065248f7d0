# `+` with a string on either side joins the texts of both values.
puts("a" + nil)
puts(1 + "2")
puts("list " + [1, "b", 2.5])
puts(true + "!")
