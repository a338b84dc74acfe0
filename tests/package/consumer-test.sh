#!/usr/bin/env bash
# Installs the library from a build tree into a scratch prefix, then builds and runs a small
# program of its own against the installed tree: once through find_package, once through
# pkg-config. Usage: consumer-test.sh BUILD_DIR CXX_COMPILER WORK_DIR
set -euo pipefail
build=$1 compiler=$2 work=$3
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work" && mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"

cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$work/prefix" > "$work/configure.log"
cmake --build "$work/cmake"
"$work/cmake/consumer"

PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name aclkit.pc)")
export PKG_CONFIG_PATH
libdir=$(pkg-config --variable=libdir aclkit)
# shellcheck disable=SC2046 # pkg-config's flags are meant to split
"$compiler" -Wall -Wextra -Wpedantic -Werror -I"$here/consumer" "$here/consumer/main.cpp" \
  $(pkg-config --cflags --libs aclkit) -Wl,-rpath,"$libdir" -o "$work/pkgconfig-consumer"
"$work/pkgconfig-consumer"
