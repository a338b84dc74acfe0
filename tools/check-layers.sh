#!/usr/bin/env bash
# The layering, checked from the code's own includes: a layer includes only the layers it names
# (as the build's include roots also enforce), and the framework's machinery (detail::) is
# used inside platform/ only. Prints every offending line; fails when there is one.
set -euo pipefail
cd "$(dirname "$0")/.."

# A layer and the layers it may include, itself first. Client layers see the whole library.
declare -A allowed=(
  [platform]="platform"
  [model]="model platform"
  [Acl]="Acl model platform"
  [text]="text Acl model platform"
  [agent]="agent text Acl model platform"
  [client]="client agent text Acl model platform"
  [interchange]="interchange client agent text Acl model platform"
  [aclsh]="aclsh interchange client agent text Acl model platform"
  [python]="python interchange client agent text Acl model platform"
)
status=0
for layer in "${!allowed[@]}"; do
  [ -d "$layer" ] || continue
  while IFS=: read -r file line text; do
    included=$(sed -E 's|.*#include [<"]aclkit/([^/]+)/.*|\1|' <<<"$text")
    if [[ " ${allowed[$layer]} " != *" $included "* ]]; then
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
done
exit $status
