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
