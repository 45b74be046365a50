#!/bin/bash
# Compares the package model with zip/unzip on the same bytes: 100,000 small files (100 B to
# 8 KiB, half text-like, half random) and one large file (text-like, then random).
#
#   bench/package_vs_zip.sh [DATA_DIR] [PACKAGE_BENCH]
#
# DATA_DIR (default /tmp/opcvk-bench) receives the data, the archives and our packages; it is
# removed at the end.  PACKAGE_BENCH is the package_bench binary of a Release build (default
# build-bench/bench/package_bench).  LARGE_MIB (default 2048) sets the large file's size; the
# large cases need about three times that much free space.  CASES (default "small text random")
# selects the data sets.
#
# zip is timed as "write" (files to archive, level 6) and unzip as "read" (archive to files);
# our rows split the same work into write (parts made and filled), save, and read (every part
# reopened and read through its stream, without writing files).  Every command runs in its own
# process under /usr/bin/time -v, whose maximum resident size is the peak column; our rows
# show instead the high-water mark our binary reports at the end of each phase, so that the
# phase that reaches the peak shows.
set -euo pipefail

data_dir=${1:-/tmp/opcvk-bench}
bench=${2:-build-bench/bench/package_bench}
large_mib=${LARGE_MIB:-2048}
cases=${CASES:-small text random}

[[ -x $bench ]] || { echo "package_vs_zip.sh: no package_bench at $bench" >&2; exit 2; }
for tool in zip unzip jq /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "package_vs_zip.sh: $tool is missing" >&2; exit 2; }
done
mkdir -p "$data_dir"
data_dir=$(cd "$data_dir" && pwd)
trap 'rm -rf "$data_dir"' EXIT

rows=()

# Runs a command under /usr/bin/time -v; sets wall, cpu (user + system) and peak (MiB).
timed() {
  local log=$data_dir/time.log
  /usr/bin/time -v -o "$log" "$@"
  wall=$(awk -F': ' '/Elapsed \(wall clock\)/ {
      n = split($2, t, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + t[i]; printf "%.2f", s }' "$log")
  cpu=$(awk -F': ' '/User time/ {u = $2} /System time/ {s = $2} END {printf "%.2f", u + s}' "$log")
  peak=$(awk -F': ' '/Maximum resident set size/ {printf "%.1f", $2 / 1024}' "$log")
}

mib() { du -b --apparent-size -s "$1" | awk '{printf "%.1f", $1 / 1048576}'; }

row() { rows+=("$(printf '%-8s %-22s %-6s %9s %9s %9s %10s' "$@")"); }

zip_case() {  # name, path relative to data_dir/in
  local name=$1 target=$2
  pushd "$data_dir/in" >/dev/null
  timed zip -r -q -6 "$data_dir/$name.zip" "$target"
  popd >/dev/null
  row "$name" "zip -r -q -6" write "$wall" "$cpu" "$peak" "$(mib "$data_dir/$name.zip")"
  mkdir -p "$data_dir/out"
  timed unzip -q "$data_dir/$name.zip" -d "$data_dir/out"
  row "$name" "unzip -q" read "$wall" "$cpu" "$peak" "$(mib "$data_dir/out")"
  rm -rf "$data_dir/out" "$data_dir/$name.zip"
}

ours_case() {  # name, benchmark name, threads
  local name=$1 benchmark=$2 threads=$3 json=$data_dir/bench.json
  timed "$bench" --work-dir="$data_dir" --large-mib="$large_mib" \
    --benchmark_filter="^$benchmark/threads:$threads/" --benchmark_format=json --benchmark_out="$json" \
    >/dev/null
  local process_peak=$peak
  local b=".benchmarks[0]"
  if [[ $(jq -r "$b.error_occurred // false" "$json") == true ]]; then
    echo "package_vs_zip.sh: $benchmark failed: $(jq -r "$b.error_message" "$json")" >&2
    exit 1
  fi
  for phase in write save read; do
    row "$name" "package $threads thread(s)" "$phase" \
      "$(printf %.2f "$(jq -r "$b.${phase}_s" "$json")")" \
      "$(printf %.2f "$(jq -r "$b.${phase}_cpu_s" "$json")")" \
      "$(printf %.1f "$(jq -r "$b.${phase}_peak_MiB // $process_peak" "$json")")" "$([[ $phase == save ]] && printf %.1f "$(jq -r "$b.size_MiB" "$json")" || echo -)"
  done
}

echo "load average at start: $(cut -d' ' -f1-3 /proc/loadavg); $(nproc) processors"
df -h "$data_dir" | tail -1
for c in $cases; do
  rm -rf "$data_dir/in"
  mkdir -p "$data_dir/in"
  case $c in
    small)
      "$bench" --export-small="$data_dir/in/small"
      zip_case small small
      ours_case small BM_SmallParts 1
      ours_case small BM_SmallParts 2
      ;;
    text | random)
      "$bench" --large-mib="$large_mib" --export-"$c"="$data_dir/in/$c.bin"
      zip_case "$c" "$c.bin"
      ours_case "$c" "BM_LargePart/$c" 1
      ours_case "$c" "BM_LargePart/$c" 2
      ;;
    *) echo "package_vs_zip.sh: unknown case $c" >&2; exit 2 ;;
  esac
  rm -rf "$data_dir/in"
  echo "done $c; load average: $(cut -d' ' -f1-3 /proc/loadavg)"
done

echo
printf '%-8s %-22s %-6s %9s %9s %9s %10s\n' data tool phase wall_s cpu_s peak_MiB output_MiB
printf '%s\n' "${rows[@]}"
echo "load average at end: $(cut -d' ' -f1-3 /proc/loadavg)"
