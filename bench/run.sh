#!/usr/bin/env bash
# The benchmark: the engine (through varnick-engine) against other archivers,
# in one run on the same corpus. Usage: bench/run.sh BUILD
# BENCH_ENGINE names another varnick-engine to measure (a build of a branch)
# while the corpus and results stay under BUILD.
#
# Every row runs once a round, in BENCH_ROUNDS rounds (default 3), each
# round all rows in turn, so that a slow spell of the machine falls on one
# round rather than on one row. For every row: the median of its wall
# seconds and each round's, output size, and peak memory (the largest
# resident set of any one process of the row, from GNU time, the largest of
# the rounds). Then the ratios of each engine row against each peer, and the
# speed targets, judged on the medians. Prints the tables and writes them as
# Markdown to BUILD/bench-results.md. Exits 0 when it ran, whatever the
# figures; a row that failed in any round says so.
set -uo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${1:?usage: bench/run.sh BUILD}
BUILD=$(cd "$BUILD" && pwd)
ENGINE=${BENCH_ENGINE:-$BUILD/bin/varnick-engine}
WORK=${BENCH_WORK:-$BUILD/bench-work}
RESULTS=$BUILD/bench-results.md
ROUNDS=${BENCH_ROUNDS:-3}
TIMER=/usr/bin/time
# The engine codes that mean "not there yet" rather than "broken".
NOT_IMPLEMENTED=17505

if [ ! -x "$ENGINE" ]; then
  echo "bench: $ENGINE is missing (build the target app-varnick-engine)" >&2
  exit 2
fi
if [ ! -x "$TIMER" ]; then
  echo "bench: $TIMER is missing (GNU time: scripts/install-deps.sh)" >&2
  exit 2
fi

CORPUS=$(BENCH_CORPUS=${BENCH_CORPUS:-$BUILD/bench-corpus} "$ROOT/bench/corpus.sh") || exit 2
SOURCES=(headers binary)
CORPUS_BYTES=$(cd "$CORPUS" && find "${SOURCES[@]}" -type f -printf '%s\n' |
  awk '{ s += $1 } END { print s }')
CORPUS_FILES=$(cd "$CORPUS" && find "${SOURCES[@]}" -type f | wc -l)
# Every row reads the corpus from the page cache, the first one too.
(cd "$CORPUS" && find "${SOURCES[@]}" -type f -exec cat {} + >/dev/null)

rm -rf "$WORK"
mkdir -p "$WORK/out"

declare -A LABEL_OF SECONDS_OF RUNS_OF SIZE_OF PEAK_OF STATE_OF
LOAD_BEFORE=$(cut -d' ' -f1-3 /proc/loadavg)

# The median of the numbers given.
median() {
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 }
    END { if (NR % 2) print v[(NR + 1) / 2]; else printf "%.2f\n", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# measure ID LABEL OUTPUT COMMAND: runs the shell COMMAND in the corpus folder
# under GNU time; OUTPUT is the archive (a file, made anew: some archivers
# would add to one left by the round before) or the folder expanded into.
# A row failed in one round stays failed.
measure() {
  local id=$1 label=$2 output=$3 command=$4 log="$WORK/$1.log" stamp="$WORK/$1.time"
  LABEL_OF[$id]=$label
  printf '%-38s ' "$label" >&2
  if [ -n "${STATE_OF[$id]:-}" ] && [ "${STATE_OF[$id]}" != ok ]; then
    echo "${STATE_OF[$id]} (an earlier round)" >&2
    return
  fi
  [ -d "$output" ] || rm -f "$output"
  (cd "$CORPUS" && "$TIMER" -f '%e %M' -o "$stamp" bash -c "$command") >"$log" 2>&1
  local status=$?
  if [ $status -ne 0 ]; then
    if grep -q "$NOT_IMPLEMENTED" "$log"; then
      STATE_OF[$id]="not available"
    else
      STATE_OF[$id]="failed (exit $status)"
    fi
    echo "${STATE_OF[$id]}: $(grep -v '^Command exited' "$log" | tail -1)" >&2
    return
  fi
  STATE_OF[$id]=ok
  local seconds peak
  read -r seconds peak <"$stamp"
  peak=$((peak / 1024))
  RUNS_OF[$id]="${RUNS_OF[$id]:+${RUNS_OF[$id]} }$seconds"
  # shellcheck disable=SC2086  # the rounds' seconds, one word each
  SECONDS_OF[$id]=$(median ${RUNS_OF[$id]})
  if [ "$peak" -gt "${PEAK_OF[$id]:-0}" ]; then PEAK_OF[$id]=$peak; fi
  if [ -d "$output" ]; then
    SIZE_OF[$id]=$(find "$output" -type f -printf '%s\n' | awk '{ s += $1 } END { print s + 0 }')
    if [ "${SIZE_OF[$id]}" != "$CORPUS_BYTES" ]; then
      STATE_OF[$id]="incomplete"
    fi
  else
    SIZE_OF[$id]=$(stat -c %s "$output" 2>/dev/null || echo 0)
  fi
  echo "$seconds s, ${SIZE_OF[$id]} bytes, $peak MiB" >&2
}

have() { command -v "$1" >/dev/null 2>&1; }

skip() {
  LABEL_OF[$1]=$2
  STATE_OF[$1]="missing: $3"
}

OUT=$WORK/out
E="'$ENGINE'"
S="${SOURCES[*]}"
# Expansions stay until the end: removing thousands of files just before the
# next row makes the file system look for free inodes past the ones freed a
# moment ago, which costs that row seconds of system time that have nothing
# to do with it.
X=$WORK/x

# expand_with_engine ROUND ID ARCHIVE LABEL FROM: the engine expands the
# archive of the compression row FROM.
expand_with_engine() {
  local r=$1 id=$2 archive=$3 label=$4 from=$5
  if [ "${STATE_OF[$from]}" != ok ]; then
    skip "$id" "$label" "no archive"
    STATE_OF[$id]=${STATE_OF[$from]}
    return
  fi
  measure "$id" "$label" "$X/$r/$id" "$E x '$archive' '$X/$r/$id'"
}

# One round: every row once.
round() {
  local r=$1
  echo "round $r of $ROUNDS: compressing $CORPUS_FILES files, $CORPUS_BYTES bytes" >&2
  measure e-zip "varnick-engine zip (deflate 6)" "$OUT/e.zip" \
    "$E a --format zip --method 1 --level 6 '$OUT/e.zip' $S"
  measure e-7z "varnick-engine 7z (level 5)" "$OUT/e.7z" "$E a --format sevenz --level 5 '$OUT/e.7z' $S"
  measure e-vnkx "varnick-engine vnkx (defaults)" "$OUT/e.vnkx" "$E a --format vnkx '$OUT/e.vnkx' $S"
  measure e-vnkx5 "varnick-engine vnkx (degree 5)" "$OUT/e5.vnkx" \
    "$E a --format vnkx --degree 5 '$OUT/e5.vnkx' $S"
  measure e-tgz "varnick-engine tgz" "$OUT/e.tgz" "$E a '$OUT/e.tgz' $S"

  if have 7zz; then
    measure p-7z5 "7zz a -t7z -mx5" "$OUT/p5.7z" "7zz a -t7z -mx5 '$OUT/p5.7z' $S"
    measure p-7z9 "7zz a -t7z -mx9" "$OUT/p9.7z" "7zz a -t7z -mx9 '$OUT/p9.7z' $S"
  else
    skip p-7z5 "7zz a -t7z -mx5" 7zz
    skip p-7z9 "7zz a -t7z -mx9" 7zz
  fi
  if have zip; then
    measure p-zip "zip -r -6" "$OUT/p.zip" "zip -q -r -6 '$OUT/p.zip' $S"
  else
    skip p-zip "zip -r -6" zip
  fi
  if have pigz; then
    measure p-pigz "tar | pigz" "$OUT/p.tgz" "tar -cf - $S | pigz > '$OUT/p.tgz'"
  else
    skip p-pigz "tar | pigz" pigz
  fi
  if have zstd; then
    measure p-zstd "tar | zstd -T0" "$OUT/p.tar.zst" "tar -cf - $S | zstd -q -T0 > '$OUT/p.tar.zst'"
  else
    skip p-zstd "tar | zstd -T0" zstd
  fi

  # Expansion: each archive of the engine by the engine, the peers' own.
  echo "round $r of $ROUNDS: expanding" >&2
  expand_with_engine "$r" x-zip "$OUT/e.zip" "varnick-engine x zip" e-zip
  expand_with_engine "$r" x-7z "$OUT/e.7z" "varnick-engine x 7z" e-7z
  expand_with_engine "$r" x-vnkx "$OUT/e.vnkx" "varnick-engine x vnkx (defaults)" e-vnkx
  expand_with_engine "$r" x-vnkx5 "$OUT/e5.vnkx" "varnick-engine x vnkx (degree 5)" e-vnkx5
  expand_with_engine "$r" x-tgz "$OUT/e.tgz" "varnick-engine x tgz" e-tgz

  if [ "${STATE_OF[p-7z5]}" = ok ]; then
    measure px-7z "7zz x (7z -mx5)" "$X/$r/px-7z" "7zz x -y -o'$X/$r/px-7z' '$OUT/p5.7z' >/dev/null"
  else
    skip px-7z "7zz x (7z -mx5)" "no archive"
  fi
  if [ "${STATE_OF[p-zip]}" = ok ] && have unzip; then
    measure px-unzip "unzip (zip -6)" "$X/$r/px-unzip" "unzip -q '$OUT/p.zip' -d '$X/$r/px-unzip'"
  else
    skip px-unzip "unzip (zip -6)" "unzip or its archive"
  fi
  if [ "${STATE_OF[p-pigz]}" = ok ]; then
    measure px-pigz "pigz -d | tar" "$X/$r/px-pigz" \
      "mkdir -p '$X/$r/px-pigz' && pigz -dc '$OUT/p.tgz' | tar -C '$X/$r/px-pigz' -xf -"
  else
    skip px-pigz "pigz -d | tar" "no archive"
  fi
}

COMPRESSION_ENGINE=(e-zip e-7z e-vnkx e-vnkx5 e-tgz)
COMPRESSION_PEERS=(p-7z5 p-7z9 p-zip p-pigz p-zstd)
EXPANSION_ENGINE=(x-zip x-7z x-vnkx x-vnkx5 x-tgz)
EXPANSION_PEERS=(px-7z px-unzip px-pigz)

for ((r = 1; r <= ROUNDS; r++)); do round "$r"; done

# ---------------------------------------------------------------------------
# Tables

ok() { [ "${STATE_OF[$1]}" = ok ]; }
# A label as a Markdown table cell: its "|" escaped.
cell() { printf '%s' "${LABEL_OF[$1]//|/\\|}"; }
mib() { awk -v b="$1" 'BEGIN { printf "%.1f", b / 1048576 }'; }

row_line() {
  local id=$1
  if ok "$id"; then
    printf '| %s | %s | %s | %s | %s | %s |\n' "$(cell "$id")" "${SECONDS_OF[$id]}" \
      "${RUNS_OF[$id]// / \/ }" "$(mib "${SIZE_OF[$id]}")" "${SIZE_OF[$id]}" "${PEAK_OF[$id]}"
  else
    printf '| %s | %s | | | | |\n' "$(cell "$id")" "${STATE_OF[$id]}"
  fi
}

# "2.31x / 101.2%": how many times faster the engine row is than the peer,
# and its output size as a share of the peer's (archives only).
ratio_cell() {
  local mine=$1 peer=$2 sizes=$3
  if ! ok "$mine" || ! ok "$peer"; then
    echo "-"
    return
  fi
  awk -v a="${SECONDS_OF[$mine]}" -v b="${SECONDS_OF[$peer]}" -v sa="${SIZE_OF[$mine]}" \
    -v sb="${SIZE_OF[$peer]}" -v sizes="$sizes" 'BEGIN {
      if (a <= 0) a = 0.01
      speed = sprintf("%.2fx", b / a)
      if (sizes == "yes" && sb > 0) speed = speed sprintf(" / %.1f%%", 100 * sa / sb)
      print speed
    }'
}

ratio_table() {
  local sizes=$1 engines_name=$2 peers_name=$3
  local -n engines=$engines_name peers=$peers_name
  local header="| engine row |" rule="|---|" id peer
  for peer in "${peers[@]}"; do
    header+=" vs $(cell "$peer") |"
    rule+="---|"
  done
  echo "$header"
  echo "$rule"
  for id in "${engines[@]}"; do
    local line="| $(cell "$id") |"
    for peer in "${peers[@]}"; do line+=" $(ratio_cell "$id" "$peer" "$sizes") |"; done
    echo "$line"
  done
}

verdict() { if awk "BEGIN { exit !($1) }"; then echo "met"; else echo "not met"; fi; }

# The targets that this run can judge; a row that did not run leaves its
# target open.
targets() {
  echo "| target | figures | verdict |"
  echo "|---|---|---|"
  if ok e-zip && ok p-zip; then
    local s=${SECONDS_OF[e-zip]} ps=${SECONDS_OF[p-zip]} z=${SIZE_OF[e-zip]} pz=${SIZE_OF[p-zip]}
    echo "| zip at least 2x as fast as zip -r -6 | ${s} s vs ${ps} s | $(verdict "$ps >= 2 * $s") |"
    echo "| zip archive at most 2% larger | $z vs $pz bytes | $(verdict "$z <= 1.02 * $pz") |"
  fi
  if ok x-zip && ok px-unzip; then
    local x=${SECONDS_OF[x-zip]} px=${SECONDS_OF[px-unzip]}
    echo "| zip expansion at least as fast as unzip | ${x} s vs ${px} s | $(verdict "$px >= $x") |"
  fi
  if ok e-vnkx && ok p-7z5; then
    echo "| vnkx defaults 4x as fast as 7zz -mx5, no larger | ${SECONDS_OF[e-vnkx]} s," \
      "${SIZE_OF[e-vnkx]} B vs ${SECONDS_OF[p-7z5]} s, ${SIZE_OF[p-7z5]} B |" \
      "$(verdict "${SECONDS_OF[p-7z5]} >= 4 * ${SECONDS_OF[e-vnkx]} && ${SIZE_OF[e-vnkx]} <= ${SIZE_OF[p-7z5]}") |"
  else
    echo "| vnkx defaults 4x as fast as 7zz -mx5, no larger | vnkx: ${STATE_OF[e-vnkx]} | open |"
  fi
  if ok e-vnkx5 && ok p-7z9; then
    echo "| vnkx degree 5 smaller than 7zz -mx9, in no more time | ${SECONDS_OF[e-vnkx5]} s," \
      "${SIZE_OF[e-vnkx5]} B vs ${SECONDS_OF[p-7z9]} s, ${SIZE_OF[p-7z9]} B |" \
      "$(verdict "${SECONDS_OF[e-vnkx5]} <= ${SECONDS_OF[p-7z9]} && ${SIZE_OF[e-vnkx5]} < ${SIZE_OF[p-7z9]}") |"
  else
    echo "| vnkx degree 5 smaller than 7zz -mx9, in no more time | vnkx: ${STATE_OF[e-vnkx5]} | open |"
  fi
  if ok x-vnkx && ok px-7z; then
    echo "| vnkx expansion 2x as fast as 7zz x | ${SECONDS_OF[x-vnkx]} s vs ${SECONDS_OF[px-7z]} s |" \
      "$(verdict "${SECONDS_OF[px-7z]} >= 2 * ${SECONDS_OF[x-vnkx]}") |"
  else
    echo "| vnkx expansion 2x as fast as 7zz x | vnkx: ${STATE_OF[x-vnkx]} | open |"
  fi
  # Default operations only: the smallest preset is not one.
  local id worst=0 worst_id=""
  for id in e-zip e-7z e-vnkx e-tgz x-zip x-7z x-vnkx x-tgz; do
    if ok "$id" && [ "${PEAK_OF[$id]}" -gt "$worst" ]; then
      worst=${PEAK_OF[$id]}
      worst_id=$id
    fi
  done
  if [ -n "$worst_id" ]; then
    echo "| peak memory of default operations at most 256 MiB |" \
      "highest: ${worst} MiB ($(cell "$worst_id")) |" \
      "$(verdict "$worst <= 256") |"
  fi
}

report() {
  echo "# Benchmark results"
  echo
  echo "$(date -u '+%Y-%m-%d %H:%M UTC'); $(nproc) cores," \
    "$(lscpu | sed -n 's/^Model name: *//p' | head -1)," \
    "$(awk '/MemTotal/ { printf "%.1f GiB", $2 / 1048576 }' /proc/meminfo) memory;" \
    "load average before the run: $LOAD_BEFORE."
  echo
  echo "Corpus: $CORPUS_FILES files, $CORPUS_BYTES bytes ($(mib "$CORPUS_BYTES") MiB):"
  echo
  sed 's/^/- /' "$CORPUS/.contents"
  echo
  echo "Every row ran once in each of $ROUNDS rounds (each round all rows in turn). Seconds are"
  echo "the median of the rounds' wall times, which follow it; ratios and targets use the medians."
  echo "Peak is the largest resident set of any one process of the row (GNU time), in MiB, the"
  echo "largest of the rounds. Expansion sizes are the bytes written, which equal the corpus when"
  echo "the expansion is whole."
  echo
  echo "## Compression"
  echo
  echo "| row | seconds | rounds | MiB | bytes | peak MiB |"
  echo "|---|---|---|---|---|---|"
  for id in "${COMPRESSION_ENGINE[@]}" "${COMPRESSION_PEERS[@]}"; do row_line "$id"; done
  echo
  echo "## Expansion"
  echo
  echo "| row | seconds | rounds | MiB | bytes | peak MiB |"
  echo "|---|---|---|---|---|---|"
  for id in "${EXPANSION_ENGINE[@]}" "${EXPANSION_PEERS[@]}"; do row_line "$id"; done
  echo
  echo "## Ratios"
  echo
  echo "Compression: how many times as fast as the peer / archive size as a share of the peer's."
  echo
  ratio_table yes COMPRESSION_ENGINE COMPRESSION_PEERS
  echo
  echo "Expansion: how many times as fast as the peer."
  echo
  ratio_table no EXPANSION_ENGINE EXPANSION_PEERS
  echo
  echo "## Targets"
  echo
  targets
}

report >"$RESULTS"
echo >&2
cat "$RESULTS"
echo >&2
echo "bench: results written to $RESULTS" >&2
rm -rf "$WORK/out" "$X"
exit 0
