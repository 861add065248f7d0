# The words of the walk, in OrvaneRuby: the score line, made from OrvaneLua's tally.
def counted(n, word)
  if n == 1
    return "1 " + word
  end
  to_s(n) + " " + word + "s"
end

def score_line()
  counted(lua_var("steps"), "step") + ", " + counted(lua_var("bumps"), "bump")
end
