#!/usr/bin/env bash
# The benchmark against other archivers. The corpus and the timing script
# come with the engine's speed work; until then this says so plainly.
set -euo pipefail
echo "bench: the benchmark is not built yet (it comes with the engine's speed work)." >&2
exit 2
