#!/usr/bin/env bash
# The three languages share one standard output. Into a pipe, where output is fully buffered,
# the lines must still arrive in the order the statements ran: no language's buffer may hold
# its text back past another's.
#   output_order.sh EXECUTABLE
set -u
exe=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat > "$work/lua.ov" <<'EOF'
print('host 1')
Lua['runScript']('print("lua 1")')
Ruby['runScript']('puts("ruby 1"); print("ruby 2")')
print(' and host 2')
Lua['runScript']('io.write("lua 2, ") print("lua 3")')
print('host 3')
Ruby['runScript']('puts("ruby 3")')
print('host 4')
EOF
expected='host 1
lua 1
ruby 1
ruby 2 and host 2
lua 2, lua 3
host 3
ruby 3
host 4'
actual=$(cd "$work" && ${OT_EMULATOR:-} "$exe" < /dev/null | cat)
if [ "$actual" != "$expected" ]; then
  echo "output out of order:"; diff <(echo "$expected") <(echo "$actual"); exit 1
fi
echo "in statement order"
