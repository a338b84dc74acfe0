#!/usr/bin/env bash
# Runs the rest of the command line in a network namespace of its own with the veth pair v0/v1;
# exits 77 (CTest's skip) when no namespace can be made, which needs root.
set -uo pipefail
if ! unshare -n true 2>/dev/null; then
  echo "skipped: cannot make a network namespace (run as root)" >&2
  exit 77
fi
exec unshare -n bash -c 'ip link add v0 type veth peer name v1 && ip link set v0 up && ip link set v1 up && exec "$@"' \
  in-namespace "$@"
