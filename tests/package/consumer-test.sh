#!/usr/bin/env bash
# Installs the package from a build tree into a scratch prefix and uses it from there as
# whoever installed it would: builds and runs programs of its own against it (the README's
# agent among them), once through find_package and once through pkg-config; runs the installed
# aclsh; and, when the build has the Python module, imports it from the prefix and edits a list.
# Usage: consumer-test.sh BUILD_DIR CXX_COMPILER WORK_DIR [PYTHON PYTHON_DIR]
# (PYTHON_DIR: where the module is installed, relative to the prefix).
set -euo pipefail
build=$1 compiler=$2 work=$3 python=${4:-} python_dir=${5:-}
here=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix
rm -rf "$work" && mkdir -p "$work"
cmake --install "$build" --prefix "$prefix" > "$work/install.log"

# The README's agent is this one, verbatim.
awk '/^## Using the installed library/ { section = 1; next } section && /^## / { exit }
     section && /^```cpp$/ { inside = 1; next } inside && /^```$/ { exit } inside' \
  "$here/../../README.md" > "$work/readme-agent.cpp"
diff -u "$here/consumer/agent.cpp" "$work/readme-agent.cpp"

expected_agent="ip access-list web
   10 permit tcp any host 192.0.2.1 eq 443
   15 permit udp any host 192.0.2.1 eq 53
   20 deny ip any any
udp to 192.0.2.1 port 53: entry 15"

cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$prefix" > "$work/configure.log"
cmake --build "$work/cmake"
"$work/cmake/consumer"
[ "$("$work/cmake/agent")" = "$expected_agent" ]

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name aclkit.pc)")
export PKG_CONFIG_PATH
pkg-config --exists --print-errors aclkit-text aclkit-agent aclkit-client aclkit-interchange aclkit-aclsh
libdir=$(pkg-config --variable=libdir aclkit)
# shellcheck disable=SC2046 # pkg-config's flags are meant to split
"$compiler" -Wall -Wextra -Wpedantic -Werror -I"$here/consumer" "$here/consumer/main.cpp" \
  $(pkg-config --cflags --libs aclkit) -Wl,-rpath,"$libdir" -o "$work/pkgconfig-consumer"
"$work/pkgconfig-consumer"
# shellcheck disable=SC2046
"$compiler" -Wall -Wextra -Wpedantic -Werror "$here/consumer/agent.cpp" \
  $(pkg-config --cflags --libs aclkit-client aclkit-agent) -Wl,-rpath,"$libdir" -o "$work/pkgconfig-agent"
[ "$("$work/pkgconfig-agent")" = "$expected_agent" ]

# The program and its manual page; the program finds the installed library by itself.
[ -s "$prefix/share/man/man1/aclsh.1" ]
[ "$("$prefix/bin/aclsh" --version)" = "aclsh $(pkg-config --modversion aclkit)" ]
shell=$(cd "$work" && printf 'ip access-list web\n 10 permit tcp any host 192.0.2.1 eq 443\nexit\nshow access-lists\n' |
  "$prefix/bin/aclsh")
[ "$shell" = "ip access-list web: committed
ip access-list web
   10 permit tcp any host 192.0.2.1 eq 443
   -- not bound" ]

if [ -n "$python" ]; then
  PYTHONPATH=$prefix/$python_dir "$python" - "$prefix" <<'PY'
import sys
import aclkit
from aclkit import AclType, IpRule, Packet

assert aclkit.__file__.startswith(sys.argv[1] + "/"), aclkit.__file__
lib = aclkit.Library(aclkit.Store())
lib.platform.enableAll()
dp = aclkit.Dataplane(lib, "dp1")
lib.replaceBindings([("Ethernet1", "in", AclType.ip, "web")])
edit = lib.edit("web", AclType.ip)
with edit as s:
    s.addIpRule(0, IpRule("permit tcp any host 192.0.2.1 eq 443"))
assert edit.outcome.state == "applied", edit.outcome.state
assert list(lib.list(AclType.ip, "web").currCfg) == [(10, IpRule("permit tcp any host 192.0.2.1 eq 443"))]
assert dp.check("Ethernet1", "in", Packet.ip("203.0.113.9", "192.0.2.1", 6, dstPort=443)).sequence == 10
PY
fi
echo "consumer-test: ok"
