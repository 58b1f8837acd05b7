#!/usr/bin/env bash
# Fails when a source file includes a header from a layer above its own. The folders of src/ are
# layers, lowest first; a file may include headers of its own folder and of the folders below it.
set -euo pipefail
cd "$(dirname "$0")/.."
layers=(platform core logs config mail spool status service bridge)
rank() {
  local i
  for i in "${!layers[@]}"; do
    [ "${layers[$i]}" = "$1" ] && { echo "$i"; return; }
  done
  echo -1
}
bad=0
while IFS= read -r file; do
  own=$(rank "$(echo "$file" | cut -d/ -f2)")
  if [ "$own" -lt 0 ]; then
    echo "layers: $file is in a folder that is not a known layer" >&2
    bad=1
    continue
  fi
  while IFS=: read -r line target; do
    to=$(rank "$target")
    if [ "$to" -gt "$own" ]; then
      echo "layers: $file:$line includes from $target/, a layer above its own" >&2
      bad=1
    fi
  done < <(grep -n -oE '^\s*#\s*include\s+"[a-z_]+/' "$file" | sed -E 's/^([0-9]+):.*"([a-z_]+)\/$/\1:\2/')
done < <(find src -name '*.h' -o -name '*.cc' | sort)
exit $bad
