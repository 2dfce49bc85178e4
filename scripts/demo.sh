#!/usr/bin/env bash
# The main job on a real example, run from a build tree.
set -euo pipefail
BUILD="${1:-build}"
BIN="$BUILD/bin"
if [ -x "$BIN/varnick" ]; then
  "$BIN/varnick" --version
fi
