# Without `return` a function gives the value of its last statement that ran, or nil.
def assigns() y = 5 end
def nothing() if false then 1 end end
def loops() i = 0 while i < 3 do i = i + 1 end end
puts(assigns(), nothing(), loops())
