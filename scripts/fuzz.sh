#!/usr/bin/env bash
# The fuzz targets (fuzz/): built with clang-14 in build/fuzz, apart from the
# gcc presets.
#
#   scripts/fuzz.sh [SECONDS]        replay, then run every target SECONDS (default 45)
#   scripts/fuzz.sh replay           replay the seed corpus and every past finding
#   scripts/fuzz.sh run SECONDS [TARGET...]
#                                    run targets (default: all) SECONDS each;
#                                    0 runs until interrupted
#
# Environment: FUZZ_JOBS=2 runs two targets at a time (default 1);
# FUZZ_NICE=19 lowers their priority (default 0).
#
# A crash lands in build/fuzz/artifacts/<target>/; move it, under a name that
# says what it found, into fuzz/findings/<corpus>/ so every later run replays it.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$root/build/fuzz

targets_all=(profile_model transform tone_curves toplevel image_readers)
# Which corpus (fuzz/corpus/<name>, fuzz/findings/<name>) feeds each target.
corpus_of() {
    case $1 in
        profile_model|transform|toplevel) echo profiles ;;
        tone_curves) echo tone_curves ;;
        image_readers) echo images ;;
        *) echo "unknown target $1" >&2; exit 2 ;;
    esac
}
# Extra libFuzzer options per target.
options_of() {
    case $1 in
        profile_model|transform|toplevel) echo "-dict=$root/fuzz/icc.dict -max_len=32768" ;;
        tone_curves) echo "-max_len=4096" ;;
        image_readers) echo "-max_len=65536 -malloc_limit_mb=1024" ;;
    esac
}

build() {
    bash scripts/install-deps.sh
    local missing=()
    for p in clang-14 libclang-rt-14-dev; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    if ((${#missing[@]})); then
        apt-get update -qq
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
    fi
    if [ ! -f "$build/build.ninja" ]; then
        CC=clang-14 CXX=clang++-14 cmake -S fuzz -B "$build" -G Ninja >/dev/null
    fi
    cmake --build "$build" -j2 >/dev/null
}

replay() {
    local total=0 t dir n
    for t in "${targets_all[@]}"; do
        for dir in "fuzz/corpus/$(corpus_of "$t")" "fuzz/findings/$(corpus_of "$t")"; do
            [ -d "$dir" ] || continue
            n=$(find "$dir" -type f ! -name '.keep' | wc -l)
            [ "$n" -gt 0 ] || continue
            find "$dir" -type f ! -name '.keep' -print0 | xargs -0 "$build/replay_$t" >/dev/null
            echo "replay $t $dir: $n inputs passed"
            total=$((total + n))
        done
    done
    echo "fuzz replay: $total inputs passed, 0 failed"
}

run_one() {
    local t=$1 seconds=$2 corpus work log
    corpus=$(corpus_of "$t")
    work=$build/work/$t
    log=$build/logs/$t.log
    mkdir -p "$work" "$build/artifacts/$t" "$build/logs"
    # New inputs go to the scratch corpus; the committed seeds are read only.
    # shellcheck disable=SC2046
    if nice -n "${FUZZ_NICE:-0}" "$build/fuzz_$t" -max_total_time="$seconds" -print_final_stats=1 \
        -artifact_prefix="$build/artifacts/$t/" $(options_of "$t") \
        "$work" "fuzz/corpus/$corpus" "fuzz/findings/$corpus" >"$log" 2>&1; then
        echo "fuzz $t: $(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$') executions, no finding"
    else
        echo "fuzz $t: FINDING, see $log and $build/artifacts/$t/" >&2
        grep -m3 -E 'ERROR|SUMMARY|Test unit written' "$log" >&2 || true
        return 1
    fi
}

run() {
    local seconds=$1
    shift
    local list=("$@")
    [ ${#list[@]} -gt 0 ] || list=("${targets_all[@]}")
    local jobs=${FUZZ_JOBS:-1} failed=0 passed=0 pids=() t
    for t in "${list[@]}"; do
        run_one "$t" "$seconds" &
        pids+=($!)
        if [ ${#pids[@]} -ge "$jobs" ]; then
            if wait "${pids[0]}"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
            pids=("${pids[@]:1}")
        fi
    done
    for p in "${pids[@]}"; do
        if wait "$p"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
    done
    echo "fuzz run: $passed targets passed, $failed failed"
    [ "$failed" -eq 0 ]
}

case "${1:-}" in
    replay) build; replay ;;
    run) build; shift; seconds=${1:?seconds}; shift; run "$seconds" "$@" ;;
    ''|[0-9]*) build; replay; run "${1:-45}" ;;
    *) sed -n '2,16p' "$0"; exit 2 ;;
esac
