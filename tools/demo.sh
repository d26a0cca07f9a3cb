#!/usr/bin/env bash
# The SDK end to end on loopback: filled in as the SDK grows.
set -euo pipefail
bin=$1
echo "ZarvoMediaPlayer demo: tools in $bin"

# The sample origin: content, licence server and beacon collector on 127.0.0.1.
origin_log=$(mktemp)
"$bin/zm-origin" --port 0 >"$origin_log" 2>&1 &
origin_pid=$!
trap 'kill "$origin_pid" 2>/dev/null || true; rm -f "$origin_log"' EXIT
for _ in $(seq 1 600); do
  grep -q '^zm-origin serving' "$origin_log" && break
  kill -0 "$origin_pid" 2>/dev/null || { cat "$origin_log" >&2; exit 1; }
  sleep 0.1
done
ZM_ORIGIN_URL=$(awk '/^zm-origin serving/ {print $3}' "$origin_log")
export ZM_ORIGIN_URL
cat "$origin_log"
if command -v ffprobe >/dev/null; then
  echo "Streams of $ZM_ORIGIN_URL/vod/master.m3u8:"
  ffprobe -v error -show_entries stream=codec_type,codec_name,width,height:stream_tags=language \
    -of compact "$ZM_ORIGIN_URL/vod/master.m3u8" | grep -E "video|language" | sort -u
fi
