#!/usr/bin/env bash
# Runs each OrvaneRuby benchmark (bench/ruby/*.rb, valid in both dialects) with our interpreter
# and with the reference interpreter `ruby`, several times each (a ratio below 1 is faster).
#   ruby.sh ORVANERUBY [RUNS]
set -euo pipefail
exe=$(realpath "$1")
runs=${2:-5}
here=$(cd "$(dirname "$0")" && pwd)
source "$here/compare.sh"
ours() { "$exe" "$script"; }
reference() { ruby "$script"; }

heading ours ruby
for script in "$here"/ruby/*.rb; do
  compare "$(basename "$script" .rb)"
done
