#!/usr/bin/env bash
# Builds the benchmark corpus once, into $BENCH_CORPUS (default
# build/bench-corpus), and prints its folder:
#   headers/  about 130 MB of C and C++ headers: the files of /usr/include,
#             then headers lying under /usr/lib and /usr/share, then
#             /usr/include again, until the size is reached
#   binary/   one large shared library of about 30 MB and a second copy of it
#             under another name
# A corpus that is complete (it has .complete) is left as it is. What went in
# is written to .contents, for the results.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
CORPUS=${BENCH_CORPUS:-$ROOT/build/bench-corpus}
HEADER_BYTES=${BENCH_HEADER_BYTES:-130000000}
BINARY_BYTES=${BENCH_BINARY_BYTES:-30000000}
LIBDIR=/usr/lib/x86_64-linux-gnu

if [ -f "$CORPUS/.complete" ]; then
  echo "$CORPUS"
  exit 0
fi

bytes_of() { du -sb --apparent-size "$1" | cut -f1; }

# Regular files of `from` (links left out: they only name files again), in
# name order, copied below `to` until the corpus's headers reach `limit`
# bytes; prints how many bytes it copied.
copy_files_until() {
  local to=$1 limit=$2 have=$3
  shift 3
  local list
  list=$(mktemp)
  (cd / && find "$@" -type f -name "${HEADER_PATTERN:-*}" -printf '%s\t%p\n' 2>/dev/null |
    sort -t "$(printf '\t')" -k2) |
    awk -F '\t' -v have="$have" -v limit="$limit" \
      'have < limit { have += $1; total += $1; print $2 > "/dev/stderr" } END { print total + 0 }' \
      2>"$list"
  mkdir -p "$to"
  tar -C / -cf - -T "$list" | tar -C "$to" -xf -
  rm -f "$list"
}

add_headers() {
  local headers=$1 have=0 copied round=1
  copied=$(copy_files_until "$headers" "$HEADER_BYTES" "$have" usr/include)
  have=$((have + copied))
  echo "headers: /usr/include, regular files ($copied bytes)" >>"$CORPUS.tmp/.contents"
  if [ "$have" -lt "$HEADER_BYTES" ]; then
    copied=$(HEADER_PATTERN='*.h' copy_files_until "$headers" "$HEADER_BYTES" "$have" \
      usr/lib usr/share)
    have=$((have + copied))
    echo "headers: *.h under /usr/lib and /usr/share, in name order ($copied bytes)" \
      >>"$CORPUS.tmp/.contents"
  fi
  # Still too little: /usr/include again, under another folder each round.
  while [ "$have" -lt "$HEADER_BYTES" ]; do
    copied=$(copy_files_until "$headers/repeat$round" "$HEADER_BYTES" "$have" usr/include)
    [ "$copied" -gt 0 ] || break
    have=$((have + copied))
    echo "headers: /usr/include repeated ($copied bytes)" >>"$CORPUS.tmp/.contents"
    round=$((round + 1))
  done
}

# The shared library closest to the wanted size; failing one of two thirds
# to twice that size, shared libraries concatenated up to it.
add_binary() {
  local binary=$1 best
  mkdir -p "$binary"
  best=$(find "$LIBDIR" -maxdepth 1 -type f -name '*.so*' -size +$((BINARY_BYTES * 2 / 3))c -size -$((BINARY_BYTES * 2))c -printf '%s %p\n' |
    awk -v want="$BINARY_BYTES" '{ d = $1 - want; if (d < 0) d = -d; print d, $2 }' |
    sort -n | head -1 | cut -d' ' -f2)
  if [ -n "$best" ]; then
    cp "$best" "$binary/library.so"
    echo "binary: $best ($(bytes_of "$binary/library.so") bytes), twice" >>"$CORPUS.tmp/.contents"
  else
    find "$LIBDIR" -maxdepth 1 -type f -name '*.so*' | sort | while read -r file; do
      [ "$(bytes_of "$binary/library.so" 2>/dev/null || echo 0)" -ge "$BINARY_BYTES" ] && break
      cat "$file" >>"$binary/library.so"
    done
    echo "binary: shared libraries of $LIBDIR concatenated" \
      "($(bytes_of "$binary/library.so") bytes), twice" >>"$CORPUS.tmp/.contents"
  fi
  cp "$binary/library.so" "$binary/library-copy.so"
}

rm -rf "$CORPUS.tmp"
mkdir -p "$CORPUS.tmp"
: >"$CORPUS.tmp/.contents"
add_headers "$CORPUS.tmp/headers"
add_binary "$CORPUS.tmp/binary"
find "$CORPUS.tmp"/headers "$CORPUS.tmp"/binary -type f -printf '%s\n' |
  awk '{ s += $1 } END { print "total:", s, "bytes in", NR, "files" }' >>"$CORPUS.tmp/.contents"
touch "$CORPUS.tmp/.complete"
rm -rf "$CORPUS"
mv "$CORPUS.tmp" "$CORPUS"
echo "$CORPUS"
