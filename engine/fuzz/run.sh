#!/usr/bin/env bash
# Runs the engine's fuzz target for a bounded time on seeds made here from
# small archives of every kind the tools at hand write.
# Usage: engine/fuzz/run.sh FUZZ_BUILD [SECONDS] [VARNICK_ENGINE_PROGRAM]
# The program, when given and present, adds seeds of the engine's own formats.
# A crash, leak or hang exits non-zero and leaves the input in
# FUZZ_BUILD/findings/.
set -euo pipefail

BUILD=$(cd "${1:?usage: engine/fuzz/run.sh FUZZ_BUILD [SECONDS] [PROGRAM]}" && pwd)
SECONDS_TO_RUN=${2:-60}
PROGRAM=${3:-}
if [ -n "$PROGRAM" ] && [ -x "$PROGRAM" ]; then PROGRAM=$(realpath "$PROGRAM"); else PROGRAM=; fi
FUZZER=$BUILD/bin/engine_fuzz
# Inputs that once failed a run, kept to be run first every time.
REGRESSIONS=$(cd "$(dirname "$0")" && pwd)/regressions
SEEDS=$BUILD/seeds
CORPUS=$BUILD/corpus
FINDINGS=$BUILD/findings

[ -x "$FUZZER" ] || {
  echo "fuzz: $FUZZER is missing (build the target engine_fuzz)" >&2
  exit 2
}

have() { command -v "$1" >/dev/null 2>&1; }

# Runs a seed maker; a tool that cannot write that kind here costs its seed
# only.
seed() { "$@" >/dev/null 2>&1 || echo "fuzz: no seed from: $*" >&2; }

make_sources() {
  local tree=$1
  mkdir -p "$tree/docs/empty-folder"
  printf 'A small text that repeats, a small text that repeats.\n%.0s' {1..20} >"$tree/docs/notes.txt"
  head -c 300 /dev/urandom >"$tree/noise.bin"
  : >"$tree/docs/empty.txt"
  ln -sf docs/notes.txt "$tree/link"
}

# yEnc has no tool here: one single-part post, written out.
write_yenc() {
  python3 - "$1" "$2" <<'EOF'
import sys
data = open(sys.argv[1], "rb").read()
out = bytearray(b"=ybegin line=128 size=%d name=notes.txt\r\n" % len(data))
column = 0
for byte in data:
    byte = (byte + 42) % 256
    if byte in (0, 10, 13, 61):
        out += b"="
        byte = (byte + 64) % 256
    out.append(byte)
    column += 1
    if column >= 128:
        out += b"\r\n"
        column = 0
out += b"\r\n=yend size=%d\r\n" % len(data)
open(sys.argv[2], "wb").write(out)
EOF
}

make_seeds() {
  local work tree
  work=$(mktemp -d)
  tree=$work/tree
  make_sources "$tree"
  rm -rf "$SEEDS"
  mkdir -p "$SEEDS"
  (
    cd "$work"
    if have zip; then
      seed zip -q -r -y "$SEEDS/deflate.zip" tree
      seed zip -q -r -0 "$SEEDS/stored.zip" tree
      seed zip -q -r -P secret "$SEEDS/traditional.zip" tree
    fi
    if have arc; then
      # ARC takes DOS names and short paths: it writes beside the files.
      seed sh -c 'cd tree/docs && arc a x.arc notes.txt empty.txt && mv x.arc "$1/crunched.arc"' _ "$SEEDS"
      seed sh -c 'cd tree/docs && arc aq x.arc notes.txt && mv x.arc "$1/squashed.arc"' _ "$SEEDS"
    fi
    if have arj; then
      seed arj a -r -y -m1 "$SEEDS/huffman.arj" tree
      seed arj a -r -y -m4 "$SEEDS/fastest.arj" tree
    fi
    if have 7zz; then
      seed 7zz a -t7z "$SEEDS/lzma2.7z" tree
      seed 7zz a -t7z -m0=PPMd "$SEEDS/ppmd.7z" tree
      seed 7zz a -t7z -m0=BZip2 "$SEEDS/bzip2.7z" tree
      seed 7zz a -t7z -m0=Deflate64 "$SEEDS/deflate64.7z" tree
      seed 7zz a -t7z -m0=Swap4 -m1=LZMA2 "$SEEDS/swap4.7z" tree
      # The four-stream branch filter: 7-Zip's strongest setting on a program.
      seed sh -c 'cp /bin/true prog && 7zz a -t7z -mx9 "$1/bcj2.7z" prog tree/docs' _ "$SEEDS"
      seed 7zz a -t7z -psecret "$SEEDS/data-enciphered.7z" tree
      seed 7zz a -t7z -psecret -mhe=on "$SEEDS/catalogue-enciphered.7z" tree
      seed 7zz a -tzip -mem=AES256 -psecret "$SEEDS/aes.zip" tree
      seed 7zz a -tzip -mm=Deflate64 "$SEEDS/deflate64.zip" tree
    fi
    tar -cf "$SEEDS/plain.tar" tree
    tar -czf "$SEEDS/plain.tgz" tree
    tar -cjf "$SEEDS/plain.tbz2" tree
    tar -cJf "$SEEDS/plain.txz" tree
    if have bsdtar; then
      for format in cpio newc iso9660 xar ar pax; do
        seed bsdtar --format "$format" -cf "$SEEDS/bsdtar.$format" tree
      done
      seed bsdtar --uuencode -cf "$SEEDS/tar.uu" tree
      seed bsdtar --b64encode -cf "$SEEDS/tar.b64" tree
    fi
    local text=tree/docs/notes.txt
    gzip -9c "$text" >"$SEEDS/notes.gz"
    bzip2 -9c "$text" >"$SEEDS/notes.bz2"
    seed xz -c "$text" >"$SEEDS/notes.xz"
    if have lzma; then lzma -c "$text" >"$SEEDS/notes.lzma"; fi
    if have zstd; then zstd -qc "$text" >"$SEEDS/notes.zst"; fi
    if have lz4; then lz4 -qc "$text" >"$SEEDS/notes.lz4"; fi
    if have python3; then seed write_yenc "$text" "$SEEDS/notes.yenc"; fi
    if [ -n "$PROGRAM" ]; then
      for format in vnkx vnk5 zip; do
        seed "$PROGRAM" a --format "$format" "$SEEDS/own.$format" tree
        seed "$PROGRAM" a --format "$format" --password secret "$SEEDS/enciphered.$format" tree
      done
      seed "$PROGRAM" a --format pf --password secret "$SEEDS/notes.pf" "$text"
      # Text alone: a text block (long repeats and PPM) with a match list,
      # with preset 4's model and the smallest preset's larger one.
      seed "$PROGRAM" a --format vnkx --degree 4 "$SEEDS/text-block.vnkx" "$text"
      seed "$PROGRAM" a --format vnkx --degree 5 "$SEEDS/text-block-smallest.vnkx" "$text"
      # ... and at the defaults a word text block (word list, codes, zstd).
      seed "$PROGRAM" a --format vnkx "$SEEDS/word-text.vnkx" "$text"
      # Zip's other methods, enciphered so the engine decodes them itself.
      for method in 2 3 4 5; do
        seed "$PROGRAM" a --format zip --method "$method" --password secret \
          "$SEEDS/method$method.zip" "$text"
      done
      # Parts of a segmented vnkx and its index: the people's program beside
      # the engine's writes them (the index into its home's index folder).
      local varnick
      varnick=$(dirname "$PROGRAM")/varnick
      if [ -x "$varnick" ]; then
        # Data that does not compress makes the set more than one part.
        head -c 3000 /dev/urandom >noise.bin
        seed env VARNICK_HOME="$work/home" "$varnick" -q create set.vnkx tree noise.bin \
          --segment-size 1k --index
        for part in set.part01.vnkx set.part02.vnkx; do
          if [ -f "$part" ]; then cp "$part" "$SEEDS/$part"; fi
        done
        find "$work/home" -name '*.vidx' -exec cp {} "$SEEDS/set.vidx" \;
      fi
    fi
  )
  rm -rf "$work"
  # Empty outputs of a tool that failed half-way teach the fuzzer nothing.
  find "$SEEDS" -type f -empty -delete
}

make_seeds
mkdir -p "$CORPUS" "$FINDINGS"
echo "fuzz: $(find "$SEEDS" -type f | wc -l) seeds, $SECONDS_TO_RUN seconds" >&2
# New inputs go to the corpus folder, which persists between runs; the seeds
# are read only. A corrupt size field makes libarchive ask for up to 4 GiB in
# one allocation, which it never fills from a small input: single allocations
# pass up to 8 GiB, while memory really used beyond 2 GiB still fails the run.
# A size field past any address space makes libarchive ask for more than the
# sanitizer's allocator can give; libarchive copes with the refusal (the
# archive is refused), so such a request fails here as it does outside the
# sanitizer. Allocations through operator new are still reported.
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}allocator_may_return_null=1"
cd "$BUILD"
exec "$FUZZER" -max_total_time="$SECONDS_TO_RUN" -rss_limit_mb=2048 -malloc_limit_mb=8192 \
  -timeout=30 -print_final_stats=1 -artifact_prefix="$FINDINGS/" "$CORPUS" "$SEEDS" "$REGRESSIONS"
