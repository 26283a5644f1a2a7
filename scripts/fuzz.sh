#!/usr/bin/env bash
# Builds the fuzz preset and runs each fuzz target for a while, on a corpus of its own that grows
# from run to run (build/fuzz/corpus-work/<target>, merged down after each run). The seeds in
# fuzz/corpus are read, never written, unless --minimize is given: then the fewest inputs that
# cover what the seeds do not are added to them. Crash inputs go to build/fuzz/artifacts/<target>/.
#   scripts/fuzz.sh [seconds-per-target] [--minimize] [target...]
#   scripts/fuzz.sh 60                    every target for a minute
#   scripts/fuzz.sh 600 command           one target for ten minutes
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=60
minimize=false
targets=()
for arg in "$@"; do
    case "$arg" in
    --minimize) minimize=true ;;
    '' | *[!0-9]*) targets+=("$arg") ;;
    *) seconds=$arg ;;
    esac
done

build=build/fuzz
work=$build/corpus-work
artifacts=$build/artifacts

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

if [ ${#targets[@]} -eq 0 ]; then
    # Every target has its seeds.
    for seeds in fuzz/corpus/*/; do
        targets+=("$(basename "$seeds")")
    done
fi

export QT_QPA_PLATFORM=offscreen
export ASAN_OPTIONS=detect_leaks=1
export ASAN_SYMBOLIZER_PATH=/usr/lib/llvm-15/bin/llvm-symbolizer
export LSAN_OPTIONS="suppressions=$PWD/fuzz/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# The value of a libFuzzer "stat::" line, or of a field ("cov:", "ft:") of its last status line.
final_stat() { sed -n "s/^stat::$1: *//p" "$2" | tail -1; }
field() { grep -o " $1: [0-9]*" "$2" | tail -1 | sed 's/.* //' || true; }

rows=()
for target in "${targets[@]}"; do
    binary=$build/fuzz/fuzz_$target
    [ -x "$binary" ] || { echo "No fuzz target $target" >&2; exit 1; }
    mkdir -p "$work/$target" "$artifacts/$target"
    # The seeds, without the inputs kept because they once failed: those are for the replay.
    find "fuzz/corpus/$target" -maxdepth 1 -type f ! -name 'crash-*' -exec cp -n {} "$work/$target/" \;
    dict=fuzz/dict/json.dict
    [ "$target" = chat_document ] && dict=fuzz/dict/document.dict

    log=$artifacts/$target/last-run.log
    : >"$log"
    execs=0 crashes=0 cov=0 ft=0 left=$seconds
    # A crash ends libFuzzer's run; the rest of the time goes to a new run on the same corpus.
    while [ "$left" -gt 0 ]; do
        started=$(date +%s)
        status=0
        "$binary" -max_total_time="$left" -timeout=10 -print_final_stats=1 -dict="$dict" \
            -artifact_prefix="$artifacts/$target/" "$work/$target" >"$log.part" 2>&1 || status=$?
        cat "$log.part" >>"$log"
        runs=$(final_stat number_of_executed_units "$log.part")
        execs=$((execs + ${runs:-0}))
        cov=$(field cov "$log.part")
        ft=$(field ft "$log.part")
        left=$((left - ($(date +%s) - started)))
        [ "$status" -eq 0 ] && continue
        crashes=$((crashes + 1))
        grep -m1 -E "^SUMMARY: |runtime error:|^==[0-9]+==ERROR: " "$log.part" >&2 || true
        # A run that failed before fuzzing would fail the same way again.
        [ -n "$runs" ] || break
    done
    rm -f "$log.part"

    # Keeps the corpus to the inputs that each reach something the others do not.
    merged=$(mktemp -d)
    "$binary" -merge=1 "$merged" "$work/$target" >"$artifacts/$target/merge.log" 2>&1
    rm -rf "${work:?}/$target"
    mv "$merged" "$work/$target"

    if $minimize; then
        seeds=$(mktemp -d)
        find "fuzz/corpus/$target" -maxdepth 1 -type f ! -name 'crash-*' -exec cp {} "$seeds/" \;
        before=$(ls "$seeds" | wc -l)
        # The smallest set of inputs that covers what the seeds do not.
        "$binary" -set_cover_merge=1 "$seeds" "$work/$target" >"$artifacts/$target/minimize.log" 2>&1
        for file in "$seeds"/*; do
            [ -e "fuzz/corpus/$target/$(basename "$file")" ] || cp "$file" "fuzz/corpus/$target/"
        done
        echo "$target: $(($(ls "$seeds" | wc -l) - before)) inputs added to fuzz/corpus/$target"
        rm -rf "$seeds"
    fi

    corpus=$(ls "$work/$target" | wc -l)
    spent=$((seconds - left))
    rate=$((spent > 0 ? execs / spent : 0))
    rows+=("$(printf '%-20s %12s %9s %7s %7s %8s %8s' "$target" "$execs" "$rate" "${cov:-0}" \
        "${ft:-0}" "$corpus" "$crashes")")
done

printf '%-20s %12s %9s %7s %7s %8s %8s\n' target execs exec/s cov ft corpus crashes
printf '%s\n' "${rows[@]}"
