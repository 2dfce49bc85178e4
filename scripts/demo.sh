#!/usr/bin/env bash
# The main job on a real example, run from a build tree: the command-line
# program on a sample tree made from files installed on this machine, with
# the product's folders kept below a demo home rather than the user's own.
set -euo pipefail
BUILD="${1:-build}"
BIN="$BUILD/bin"
DEMO="$BUILD/demo"

rm -rf "$DEMO"
mkdir -p "$DEMO/home" "$DEMO/sample/docs"
export VARNICK_HOME="$(cd "$DEMO/home" && pwd)"
cp /usr/include/zlib.h /usr/include/zconf.h "$DEMO/sample/"
cp -r /usr/share/doc/zstd/. "$DEMO/sample/docs/"
touch "$DEMO/sample/.hidden-note"

run() {
  echo
  echo "\$ varnick $*"
  "$BIN/varnick" "$@"
}

run --version
run folders
run ls "$DEMO/sample"
run ls "$DEMO/sample/docs"

# The main job: a vnkx archive of the sample made with progress, listed,
# verified, expanded into a fresh folder and compared with the original.
ARCHIVE="$DEMO/sample.vnkx"
run create "$ARCHIVE" "$DEMO/sample"
run list "$ARCHIVE"
run info "$ARCHIVE"
run verify "$ARCHIVE"
run expand "$ARCHIVE" -d "$DEMO/expanded"
echo
echo "\$ diff -r sample expanded/sample"
diff -r "$DEMO/sample" "$DEMO/expanded/sample" && echo "the expanded tree is the same as the sample"

# The same request as a job file, the way other programs of the product hand
# one over: written through the library's plain C layer, run by the job
# runner in a process of its own, and its results read back from the job.
JOB="$DEMO/job.ini"
JOB_ARCHIVE="$DEMO/job/sample.vnkx"
mkdir -p "$DEMO/job"
run job --new "$JOB" --archive "$JOB_ARCHIVE" "$DEMO/sample"
echo
echo "\$ varnick-cmdline job.ini"
"$BIN/varnick-cmdline" "$JOB"
run job --results "$JOB"
run expand "$JOB_ARCHIVE" -d "$DEMO/job-expanded"
echo
echo "\$ diff -r sample job-expanded/sample"
diff -r "$DEMO/sample" "$DEMO/job-expanded/sample" &&
  echo "the job's archive expands to the same tree as the sample"
