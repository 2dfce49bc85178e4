#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking need.
# Idempotent: packages already present are left alone; nothing but Debian's
# own packages is fetched.
set -euo pipefail

PACKAGES=(
  # toolchain
  g++ cmake ninja-build ccache make pkg-config clang-format
  # the fuzz targets (libFuzzer comes with clang's runtime)
  clang libclang-rt-dev
  # tests and benchmark
  libgtest-dev libgmock-dev libbenchmark-dev
  # product libraries
  libarchive-dev zlib1g-dev libbz2-dev liblzma-dev libzstd-dev liblz4-dev
  libbrotli-dev libdeflate-dev libssl-dev libcurl4-openssl-dev libsqlite3-dev
  libburn-dev libisofs-dev libisal-dev libturbojpeg0-dev libargon2-dev
  # file-system helpers the tests use
  attr xdg-utils
  # interoperability checks and test servers
  python3 python3-pyftpdlib 7zip zip unzip libarchive-tools arc arj
  # the benchmark's peers and its timer
  pigz time
  # the stream compressors the engine's tests check their formats with
  gzip bzip2 xz-utils zstd lz4
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
