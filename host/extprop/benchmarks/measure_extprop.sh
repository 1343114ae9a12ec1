#!/usr/bin/env bash
# Prints what the tool's commands cost on large devices, as ratios to a plain boot that is timed in
# the same run: measure_extprop.sh [REPETITIONS] [BUILD]
set -euo pipefail
cd "$(dirname "$0")/../../.."
repetitions=${1:-9}
extprop=${2:-build/benchmark}/host/extprop/extprop
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Prints the wall time in ms, to three places, and the memory of the largest process in KB.
measure() {
  local status=0
  /usr/bin/time -o "$scratch/memory" -f %M "$BASH" -c '
    start=$(date +%s%N); "$@" >/dev/null 2>&1; status=$?
    echo $((($(date +%s%N) - start) / 1000)) >"$0"; exit $status' "$scratch/time" "$@" || status=$?
  [ "$status" -lt 2 ] || { echo "failed: $*" >&2; return 1; }
  awk 'NR == 1 { time = $1 / 1000 } END { printf "%.3f %d\n", time, $1 }' \
    "$scratch/time" <(tail -n 1 "$scratch/memory")
}
median() { sort -n | awk '{ line[NR] = $1 } END { print line[int((NR + 1) / 2)] }'; }

for carriers in 60 600; do
  device=$scratch/$carriers
  host/extprop/benchmarks/make_large_device.sh "$device" "$carriers" 3000
  boot=("$device/root" --props "$device/device.prop")
  for ((i = 0; i < repetitions; i++)); do
    measure "$extprop" boot "${boot[@]}" >>"$scratch/boot.$carriers"
    measure "$extprop" explain ro.vemra.area01.property00001 "${boot[@]}" >>"$scratch/explain.$carriers"
    measure "$extprop" check "${boot[@]}" >>"$scratch/check.$carriers"
  done
  one=$(median <"$scratch/boot.$carriers")
  read -r all memory < <(measure "$extprop" carriers "${boot[@]}")
  # On both sides of the long run, as the machine may be busier by then.
  for ((i = 0; i < repetitions; i++)); do
    measure "$extprop" boot "${boot[@]}" >>"$scratch/boot.$carriers"
  done
  beside=$(median <"$scratch/boot.$carriers")
  awk -v carriers="$carriers" -v keys=$((carriers / 10 * 52)) -v all="$all" -v beside="$beside" \
    -v one="$one" -v memory="$memory" -v explain="$(median <"$scratch/explain.$carriers")" \
    -v check="$(median <"$scratch/check.$carriers")" -v cores="$(nproc)" 'BEGIN {
      printf "%d carriers, 3,000 properties, %d cores: a plain boot takes %.1f ms\n", carriers, cores, beside
      printf "  explain, to a plain boot: %.2f\n  check, to a plain boot: %.2f\n", explain / one, check / one
      printf "  carriers, %d keys: %.1f s, %.1f boots a second\n", keys, all / 1000, keys * 1000 / all
      printf "  a key, to a plain boot: %.2f\n", all / keys / beside
      printf "  largest process: %.1f MB, of %d at most\n", memory / 1024, 1 + cores
    }'
done
