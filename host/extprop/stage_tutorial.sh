#!/usr/bin/env bash
# Types the commands of the docs that are made of them, and compares what they print with what the docs
# say.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/setup.sh

build_preset release extprop extproperty

PATH=$PWD/build/release/host/extprop:$PATH
docs=$PWD/docs
cd examples/device
for doc in tutorial release_gate; do
  said=$(sed -n '/^```console$/,/^```$/{/^```/!p}' "$docs/$doc.md")
  printed=$(grep '^\$ ' <<<"$said" | while read -r _ command; do
    printf '$ %s\n' "$command"
    bash -c "$command" </dev/null 2>&1 || true
  done)
  diff <(echo "$said") <(echo "$printed")
  echo "$doc: $(grep -c '^\$ ' <<<"$said") commands print what it says"
done
