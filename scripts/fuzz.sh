#!/usr/bin/env bash
# Runs every libFuzzer target (or those named) side by side for a fixed time,
# each from its checked-in seeds plus a scratch corpus of its own, and prints
# one line of figures per target at the end.
#   scripts/fuzz.sh [-t seconds] [-o outdir] [target ...]
# Needs the clang build of fuzz/README.md in build-fuzz (TELVIX_FUZZ_BUILD
# overrides). The fuzzers run at the lowest priority so that the machine stays
# usable. Findings are kept, the run goes on (fork mode): each is written as
# <outdir>/<target>/crash-* (or timeout-, oom-, leak-).
set -euo pipefail
cd "$(dirname "$0")/.."

SECONDS_EACH=3600
OUT=fuzz-out
while getopts "t:o:" opt; do
  case $opt in
    t) SECONDS_EACH=$OPTARG ;;
    o) OUT=$OPTARG ;;
    *) exit 2 ;;
  esac
done
shift $((OPTIND - 1))
ROOT=$PWD
BUILD=$(realpath "${TELVIX_FUZZ_BUILD:-build-fuzz}")
mkdir -p "$OUT"
OUT=$(realpath "$OUT")
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(decoding xmlframing dispatch localapp audio store phonebookjson)
fi

# Input sizes that fit what each target reads.
max_len_for() {
  case $1 in
    store) echo 16384 ;; # the seeds are whole databases
    *) echo 4096 ;;
  esac
}

pids=()
for t in "${targets[@]}"; do
  bin=$BUILD/fuzz/fuzz_$t
  [ -x "$bin" ] || { echo "fuzz.sh: $bin missing; build it first (fuzz/README.md)" >&2; exit 2; }
  dir=$OUT/$t
  mkdir -p "$dir/corpus"
  args=("$dir/corpus" "$ROOT/fuzz/corpus/$t" -max_total_time="$SECONDS_EACH" -timeout=10
        -rss_limit_mb=2048 -max_len="$(max_len_for "$t")" -print_final_stats=1
        -fork=1 -ignore_crashes=1 -ignore_timeouts=1 -ignore_ooms=1 -artifact_prefix="$dir/")
  [ -f "$ROOT/fuzz/$t.dict" ] && args+=(-dict="$ROOT/fuzz/$t.dict")
  asan=detect_leaks=1
  # The slow unwinder, where a leak report must see through Qt's frames to
  # be matched by fuzz/lsan.supp.
  [ "$t" = phonebookjson ] && asan=$asan:fast_unwind_on_malloc=0
  ( cd "$dir" && ASAN_OPTIONS=$asan LSAN_OPTIONS=suppressions=$ROOT/fuzz/lsan.supp \
      nice -n 19 "$bin" "${args[@]}" >fuzz.log 2>&1 ) &
  pids+=($!)
done
wait "${pids[@]}" || true

# libFuzzer's fork mode logs "#<runs>: cov: <n> ft: <n> corp: <n> exec/s <n>
# oom/timeout/crash: a/b/c time: <s>s" lines; the last one holds the totals.
printf '%-14s %10s %8s %6s %6s %8s  %s\n' target runs exec/s cov ft time findings
for t in "${targets[@]}"; do
  dir=$OUT/$t
  last=$(grep -E '^#[0-9]+: cov:' "$dir/fuzz.log" | tail -1 || true)
  runs=$(sed -E 's/^#([0-9]+):.*/\1/' <<<"$last")
  cov=$(sed -nE 's/.* cov: ([0-9]+).*/\1/p' <<<"$last")
  ft=$(sed -nE 's/.* ft: ([0-9]+).*/\1/p' <<<"$last")
  eps=$(sed -nE 's/.* exec\/s:? ([0-9]+).*/\1/p' <<<"$last")
  tm=$(sed -nE 's/.* time: ([0-9]+)s.*/\1/p' <<<"$last")
  found=$(find "$dir" -maxdepth 1 -name 'crash-*' -o -maxdepth 1 -name 'timeout-*' \
            -o -maxdepth 1 -name 'oom-*' -o -maxdepth 1 -name 'leak-*' | wc -l)
  printf '%-14s %10s %8s %6s %6s %8s  %s\n' "$t" "${runs:-?}" "${eps:-?}" "${cov:-?}" "${ft:-?}" \
    "${tm:-?}s" "$found"
done
