#!/usr/bin/env bash
# Downloads killed at random moments: each run starts `zmplay download` in a fresh application
# home and kills it, then kills two `zmplay downloads --wait` resuming it, and lets a third one
# finish. The package must then hold the same files, byte for byte, as a download that was never
# interrupted. A zmplay that ends other than by the campaign's own kill (a fatal error, a crash,
# a failed download) fails the campaign.
#
#   tools/kill-campaign.sh [-n RUNS] [--protected] [--bin DIR]
#
# The sample origin serves the segments slowly enough (a delay per segment) that a kill lands
# in the middle of a download. Prints one line per run and a summary; exits 1 on any failure.
set -euo pipefail

runs=10
protected=0
bin=$(cd "$(dirname "$0")/.." && pwd)/build/bin
while [ $# -gt 0 ]; do
  case $1 in
    -n) runs=$2; shift 2 ;;
    --protected) protected=1; shift ;;
    --bin) bin=$2; shift 2 ;;
    *) echo "usage: $0 [-n RUNS] [--protected] [--bin DIR]" >&2; exit 2 ;;
  esac
done

work=$(mktemp -d)
# shellcheck source=tools/origin.sh
. "$(dirname "$0")/origin.sh"
origin_pid=
trap 'kill "$origin_pid" 2>/dev/null || true; rm -rf "$work"' EXIT
start_origin "$bin" "$work/origin.log" --delay /vod/:120 --delay /protected/:120

if [ "$protected" = 1 ]; then
  download=("$origin/protected/master.m3u8" --cert "$origin/fps/cert" --license "$origin/fps/license")
else
  download=("$origin/vod/master.m3u8")
fi

# The files of the one package under a home, with their checksums, by path in the package.
package_sums() {
  local package
  package=$(find "$1/Library/com.zarvo.downloads" -maxdepth 2 -name '*.movpkg' -type d | head -n 1)
  [ -n "$package" ] || return 0
  (cd "$package" && find . -type f -print0 | sort -z | xargs -0 -r sha1sum)
}

# Whether the home lists a download yet.
queued() {
  ZM_HOME=$1 "$bin/zmplay" downloads --json 2>/dev/null | grep -q '"id"'
}

# Runs zmplay in `home`; with a delay, kills it after that many seconds (counted from when
# the download is queued) unless it ended first. Prints "killed" or its exit status.
run_zmplay() {
  local home=$1 delay=$2; shift 2
  ZM_HOME=$home "$bin/zmplay" "$@" >>"$home.log" 2>&1 &
  local pid=$! status=0
  if [ "$delay" != 0 ]; then
    while kill -0 "$pid" 2>/dev/null && ! queued "$home"; do sleep 0.01; done
    sleep "$delay"
    if kill -9 "$pid" 2>/dev/null; then
      wait "$pid" 2>/dev/null || true
      echo killed
      return
    fi
  fi
  # A zmplay left to finish gets a minute: one that waits for ever fails the run with its log.
  local waited=0
  while kill -0 "$pid" 2>/dev/null && [ "$waited" -lt 600 ]; do
    sleep 0.1
    waited=$((waited + 1))
  done
  if kill -9 "$pid" 2>/dev/null; then
    wait "$pid" 2>/dev/null || true
    echo hung
    return
  fi
  wait "$pid" || status=$?
  echo "$status"
}

random_delay() {
  # Up to 1.5 s, the span of a download at the origin's pace.
  awk -v seed="$RANDOM$RANDOM" 'BEGIN { srand(seed); printf "%.3f", 0.001 + rand() * 1.5 }'
}

clean=$work/clean
[ "$(run_zmplay "$clean" 0 download "${download[@]}" --title Campaign)" = 0 ] ||
  { echo "the clean download failed:" >&2; cat "$clean.log" >&2; exit 1; }
package_sums "$clean" >"$work/clean.sums"

failures=0
for run in $(seq 1 "$runs"); do
  home=$work/run$run
  endings=()
  endings+=("$(run_zmplay "$home" "$(random_delay)" download "${download[@]}" --title Campaign)")
  for _ in 1 2; do
    endings+=("$(run_zmplay "$home" "$(random_delay)" downloads --wait)")
  done
  endings+=("$(run_zmplay "$home" 0 downloads --wait)")
  verdict=ok
  for ending in "${endings[@]}"; do
    case $ending in killed | 0) ;; *) verdict="a zmplay ended with status $ending" ;; esac
  done
  if [ "$verdict" = ok ] && ! package_sums "$home" | cmp -s - "$work/clean.sums"; then
    verdict="the package differs from a clean download"
  fi
  echo "run $run: ${endings[*]}: $verdict"
  if [ "$verdict" != ok ]; then
    failures=$((failures + 1))
    tail -n 5 "$home.log" | sed 's/^/    /'
    ZM_HOME=$home "$bin/zmplay" downloads 2>&1 | sed 's/^/    /'
  fi
  rm -rf "$home" "$home.log"
done
echo "$((runs - failures)) of $runs runs resumed to a package equal to a clean download"
[ "$failures" = 0 ]
