#!/usr/bin/env bash
# Draws the README's picture of the error-log volume: vornsim fills a store
# through the ERST as Linux does (six records, the third cleared with the
# switch that makes a clear reach the flash; the next start-up would drop
# it) and decodes it.
#   scripts/volume-svg.sh VORNSIM OUT.svg
set -euo pipefail
vornsim=$(realpath "$1")
out=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
for _ in 1 2 3 4 5 6; do
  "$vornsim" erst write --generate -q > /dev/null 2>&1
done
"$vornsim" erst clear 3 -q --fix erst-clear > /dev/null 2>&1
"$vornsim" decode flash vornsim-flash.img --summary --svg "$out"
