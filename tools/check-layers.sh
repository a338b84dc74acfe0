#!/usr/bin/env bash
# The layering, checked from the code's own includes against the one place it is declared: the
# aclkit_layer(DIR ... DEPENDS ...) call in each layer's CMakeLists.txt. A layer includes only
# itself and what it depends on, directly or through another layer; the README's layer table
# names the same direct dependencies; and the framework's machinery (detail::) is used inside
# platform/ only. Prints every offence; fails when there is one.
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A depends=()
for cmakelists in */CMakeLists.txt; do
  # The words of the aclkit_layer(...) call, however it is wrapped.
  call=$(awk '/aclkit_layer\(/ { inside = 1 } inside { print } inside && /\)/ { exit }' "$cmakelists" | tr -s ' \n()' ' ')
  [ -n "$call" ] || continue
  dir=$(sed -E 's/.* DIR ([^ ]+).*/\1/' <<<"$call")
  deps=$(sed -nE 's/.* DEPENDS (.*)/\1/p' <<<"$call" | sed -E 's/ (SOURCES|LIBS|CORE|STATIC|PYTHON)( .*)?$//')
  depends[$dir]=$deps
done

# A layer and everything below it.
reachable() {
  local seen=" $1 " queue=($1) layer dep
  while [ ${#queue[@]} -gt 0 ]; do
    layer=${queue[0]}
    queue=("${queue[@]:1}")
    for dep in ${depends[$layer]:-}; do
      [[ $seen == *" $dep "* ]] && continue
      seen+="$dep "
      queue+=("$dep")
    done
  done
  echo "$seen"
}

status=0
for layer in "${!depends[@]}"; do
  allowed=$(reachable "$layer")
  while IFS=: read -r file line text; do
    included=$(sed -E 's|.*#include [<"]aclkit/([^/]+)/.*|\1|' <<<"$text")
    if [[ $allowed != *" $included "* ]]; then
      echo "$file:$line: $layer/ includes $included/, which it does not depend on" >&2
      status=1
    fi
  done < <(grep -rnE '#include [<"]aclkit/' "$layer" --include='*.h' --include='*.cpp' || true)
  if [ "$layer" != platform ]; then
    while IFS= read -r hit; do
      echo "$hit: the framework's detail:: is for platform/ only" >&2
      status=1
    done < <(grep -rnE '\bdetail::' "$layer" --include='*.h' --include='*.cpp' || true)
  fi
  # The README's row: "| `layer` | what it is | `dep`, `dep` |" (or "nothing").
  row=$(grep -E "^\| \`$layer\` \|" README.md || true)
  documented=$(sed -E 's/.*\|([^|]*)\|[[:space:]]*$/\1/' <<<"$row" | tr -d '`,' | xargs -n1 2>/dev/null | sort | xargs)
  declared=$(xargs -n1 <<<"${depends[$layer]:-}" | sort | xargs)
  if [ -z "$row" ]; then
    echo "README.md: the layer table has no row for $layer" >&2
    status=1
  elif [ "$documented" != "${declared:-nothing}" ]; then
    echo "README.md: the $layer row says it depends on '${documented}', $layer/CMakeLists.txt declares '${declared:-nothing}'" >&2
    status=1
  fi
done
exit $status
