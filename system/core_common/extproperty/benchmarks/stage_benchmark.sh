#!/usr/bin/env bash
# Runs the benchmarks and prints ratios of medians of processor time: stage_benchmark.sh [REPETITIONS]
# What is compared runs in one process, in random turns; what is short, six times as often.
set -euo pipefail
cd "$(dirname "$0")/../../../.."
. scripts/setup.sh

repetitions=${1:-9}
benchmarks=system/core_common/extproperty/benchmarks

# Prints the medians of one program as "name time" lines: medians PRESET PROGRAM REPETITIONS [FILTER]
medians() {
  "build/$1/$benchmarks/$2" --benchmark_repetitions="$3" --benchmark_filter="${4:-.}" \
    --benchmark_min_time=0.02 --benchmark_enable_random_interleaving=true \
    --benchmark_report_aggregates_only=true --benchmark_format=json 2>/dev/null |
    jq -r '.benchmarks[] | select(.aggregate_name == "median") | "\(.run_name) \(.cpu_time)"'
}

install_packages libbenchmark-dev clang jq
build_preset benchmark property_file_parser_benchmark boot_benchmark load_benchmark extproperty
build_preset benchmark-clang property_file_parser_benchmark

# The names of the parser's benchmarks are FUNCTION/PROPERTIES/WARM.
for preset in benchmark benchmark-clang; do
  {
    medians "$preset" property_file_parser_benchmark $((repetitions * 6)) '/(1000|2000|10000)/'
    medians "$preset" property_file_parser_benchmark "$repetitions" '/(200000|1000000)/'
  } | awk -v preset="$preset" '
    { split($1, part, "/"); time[part[1], part[2], part[3]] = $2; sizes[part[2]] }
    END {
      print "preset " preset
      print "properties  heap  parser/floor  parser/getline"
      for (warm = 0; warm <= 1; warm++)
        for (n = 1000; n <= 1000000; n++) if (n in sizes)
          printf "%10d  %s  %12.2f  %14.2f\n", n, warm ? "warm" : "cold",
                 time["Parser", n, warm] / time["Floor", n, warm],
                 time["Parser", n, warm] / time["GetlineLoop", n, warm]
      printf "time per property, 1,000,000 to 1,000, cold: parser %.2f, floor %.2f\n",
             time["Parser", 1000000, 0] / time["Parser", 1000, 0] / 1000,
             time["Floor", 1000000, 0] / time["Floor", 1000, 0] / 1000
    }'
done
{
  medians benchmark boot_benchmark $((repetitions * 6))
  medians benchmark load_benchmark $((repetitions * 6))
} | awk '
  { time[$1] = $2 }
  END {
    printf "slot 4 on eleven partitions, to reading their build.prop files alone: %.2f\n",
           time["LoadAllPartitions"] / time["ReadAllPartitions"]
    printf "a persist boot, to slot 4: %.2f\n", time["PersistBoot"] / time["LoadAllPartitions"]
    printf "loading the library and its factory, to slot 4: %.2f (%.0f us)\n",
           time["LoadLibraryAndFetchService"] / time["LoadAllPartitions"],
           time["LoadLibraryAndFetchService"]
  }'

# stripped_size PRESET STRIP
stripped_size() {
  local library=build/$1/system/core_common/extproperty/libextproperty.so stripped
  [ -e "$library" ] || return 0
  stripped=$(mktemp)
  "$2" -o "$stripped" "$library"
  echo "stripped size of the library of the preset $1: $(stat -c %s "$stripped") bytes"
  rm -f "$stripped"
}
stripped_size benchmark strip
stripped_size aarch64 aarch64-linux-gnu-strip
