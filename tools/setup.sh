#!/usr/bin/env bash
# Installs the Debian packages the build needs. Safe to run again: it installs only what is missing.
# `tools/setup.sh compare` also installs the peers and tools of benchmarks/compare.sh.
set -euo pipefail
packages=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev librapidcheck-dev clang-format clang-tidy valgrind gcovr
          libedit-dev nlohmann-json3-dev pybind11-dev python3-dev python3-pytest scdoc man-db libnftnl-dev libmnl-dev
          iproute2)
if [ "${1:-}" = compare ]; then packages+=(hyperfine gnuplot-nox nftables iptables); fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo_cmd=""
[ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
echo "installing: ${missing[*]}"
$sudo_cmd apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
