#!/usr/bin/env bash
# Runs each fuzz harness of BUILD (a VORN_FUZZ build) as specified and with every
# switch on, one run at a time, niced, SECONDS each (single process). New inputs go
# to BUILD/corpus/<harness>.<mode>, crashes to BUILD/findings/; the seed corpora in
# Fuzz/Corpus are read, never written. Prints one summary line per run.
set -euo pipefail
build=$1 seconds=$2 only=${3:-}
mkdir -p "$build/findings"
for harness in Fuzz/*Fuzz.cpp; do
  name=$(basename "$harness" .cpp)
  [ -n "$only" ] && [[ ",$only," != *",$name,"* ]] && continue
  for fix in none all; do
    corpus=$build/corpus/$name.$fix log=$build/findings/$name.$fix.log
    mkdir -p "$corpus"
    status=0
    VORN_FIX=$fix nice -n 10 "$build/Fuzz/$name" -max_total_time="$seconds" -max_len=16384 -timeout=30 \
      -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$build/findings/$name.$fix-" \
      "$corpus" "Fuzz/Corpus/$name" > "$log" 2>&1 || status=$?
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    line=$(grep -E '^#[0-9]+.*(cov|ft):' "$log" | tail -1 || true)
    echo "$name --fix $fix: ${execs:-?} executions, $(grep -o 'cov: [0-9]*' <<< "$line") edges," \
      "$(grep -o 'ft: [0-9]*' <<< "$line") features, $(grep -m1 '^machine faults' "$log" || echo 'no summary'), exit $status"
  done
done
