#!/usr/bin/env bash
# Types the commands of docs/tutorial.md and compares what they print with what it says.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/setup.sh

build_preset release extprop extproperty

said=$(sed -n '/^```console$/,/^```$/{/^```/!p}' docs/tutorial.md)
PATH=$PWD/build/release/host/extprop:$PATH
cd examples/device
printed=$(grep '^\$ ' <<<"$said" | while read -r _ command; do
  printf '$ %s\n' "$command"
  bash -c "$command" </dev/null 2>&1 || true
done)
diff <(echo "$said") <(echo "$printed")
echo "tutorial: $(grep -c '^\$ ' <<<"$said") commands print what it says"
