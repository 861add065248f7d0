# A failure stops the script: what was printed stays, the message goes to standard error.
puts("before")
x = [1, 2]
puts(x[5])
puts(x[-1])
puts("never")
