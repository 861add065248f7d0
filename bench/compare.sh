# Sourced by the script and dialect benchmarks: runs one of our programs and its reference side by
# side, checks that both print the same, and prints the medians and their ratio (ours / reference).
# The caller sets `runs` and defines the functions `ours` and `reference` for the program at hand.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

median() { sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
seconds() { local start end; start=$(date +%s.%N); "$@" > "$work/out" 2>&1; end=$(date +%s.%N); echo "$end - $start" | bc; }

# heading OURS REFERENCE: the table's first line, with the two interpreters' names.
heading() { printf '%-14s %12s %12s %8s\n' benchmark "$1 (s)" "$2 (s)" ratio; }

# compare NAME: one row of the table.
compare() {
  local name=$1 ours_times=() reference_times=() a b
  for _ in $(seq "$runs"); do
    ours_times+=("$(seconds ours)")
    cp "$work/out" "$work/ours.txt"
    reference_times+=("$(seconds reference)")
    cp "$work/out" "$work/theirs.txt"
  done
  if ! cmp -s "$work/ours.txt" "$work/theirs.txt"; then
    echo "$name: outputs differ"; diff "$work/ours.txt" "$work/theirs.txt" | head -5; exit 1
  fi
  a=$(printf '%s\n' "${ours_times[@]}" | median)
  b=$(printf '%s\n' "${reference_times[@]}" | median)
  printf '%-14s %12.3f %12.3f %8.2f\n' "$name" "$a" "$b" "$(echo "$a / $b" | bc -l)"
}
