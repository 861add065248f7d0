# A file's last value is its result.
"hello from OrvaneRuby"
