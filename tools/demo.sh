#!/usr/bin/env bash
# The SDK end to end on loopback: the sample origin serves HLS content, a licence server and
# a beacon collector on 127.0.0.1; zmplay plays the live stream, inspects the streams, reports
# a viewing to the collector, recovers a session left behind by a killed run, downloads the
# protected VOD into a temporary application home and plays it with the origin stopped.
set -euo pipefail
bin=$1
home=$(mktemp -d)
origin_log=$(mktemp)
export ZM_HOME=$home

section() { printf '\n== %s\n' "$*"; }

# shellcheck source=tools/origin.sh
. "$(dirname "$0")/origin.sh"
origin_pid=
trap 'kill "$origin_pid" 2>/dev/null || true; rm -rf "$home" "$origin_log"' EXIT
# The first advertising break of the live stream starts a few seconds after the origin.
start_origin "$bin" "$origin_log" --first-ad-after 3

section "Sample origin (generated with ffmpeg on first use, then cached)"
cat "$origin_log"

section "The live stream played through ZMPlayer for 15 s (headless): statuses, bitrate, ad events"
"$bin/zmplay" play "$origin/live/master.m3u8" --live --headless --for 15 |
  grep -v -e '^currentTime' -e '^access log' || true

section "The protected VOD for 5 s: its content key comes from the licence server (skd:// key URI)"
"$bin/zmplay" play "$origin/protected/master.m3u8" --cert "$origin/fps/cert" \
  --license "$origin/fps/license" --headless --for 5 |
  grep -v -e '^currentTime' -e '^access log' || true

section "Download qualities and sizes of $origin/vod/master.m3u8"
"$bin/zmplay" info "$origin/vod/master.m3u8"

section "The lowest variant's media playlist"
first_variant=$("$bin/zmplay" playlist "$origin/vod/master.m3u8" --json | tail -n 1 |
  sed -E 's/.*"path":"([^"]*)".*/\1/; s/".*//')
"$bin/zmplay" playlist "$origin/vod/$first_variant" --media --summary

section "A viewing reported to the beacon collector"
"$bin/zmplay" track --endpoint "$origin/track/demo" --content-id 101 --customer-id 7 \
  --session-id demo-session --duration 30 --url "$origin/vod/master.m3u8" \
  --event playing:0@0 --event audioTrackChanged:pl@5 --event paused:12@12 --finish

section "A run that stops mid-session leaves its events on disk; the next run's restore sends them"
"$bin/zmplay" track --endpoint "$origin/track/demo" --content-id 102 --customer-id 7 \
  --session-id left-session --event playing:0@0 --event seeking:40@20 --leave
"$bin/zmplay" track --restore

section "Beacons the collector received"
curl -s "$origin/track/received" | grep -o '"path":"[^"]*","query":\[[^]]*\]' |
  sed -E 's/"path":"([^"]*)".*/\1/' | sort | uniq -c

section "The protected VOD downloaded for offline viewing (its persistent key kept on disk)"
"$bin/zmplay" download "$origin/protected/master.m3u8" --title "Sample protected VOD" \
  --cert "$origin/fps/cert" --license "$origin/fps/license" | tail -n 3

section "Downloads list of the application home ($home)"
"$bin/zmplay" downloads

section "The download played for 5 s with the origin stopped: package and key come from disk"
download_id=$("$bin/zmplay" downloads --json | grep -o '"id":"[^"]*"' | head -n 1 | cut -d'"' -f4)
kill "$origin_pid" 2>/dev/null || true
wait "$origin_pid" 2>/dev/null || true
"$bin/zmplay" play --offline "$download_id" --headless --for 5 |
  grep -v -e '^currentTime' -e '^access log' || true
echo
echo "Demo finished."
