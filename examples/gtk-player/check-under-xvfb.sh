#!/usr/bin/env bash
# Plays the sample origin's VOD in zm-gtk-player under Xvfb and checks two screenshots taken a
# few seconds apart: the video area shows a picture (it is not one colour) and the seek bar
# moves. Exits non-zero, saying why, when either fails or the player does not quit cleanly.
#
# usage: check-under-xvfb.sh ZM_GTK_PLAYER ZM_ORIGIN [SCREENSHOT_DIR]
# Needs xvfb-run (xvfb), curl and ImageMagick (import, convert, compare); with xwininfo
# (x11-utils) it also checks that the video is not in a window of its own.
set -euo pipefail

# The window fills the 1280x720 screen (there is no window manager): the video is in the
# middle of the left part, and the position and the slider in the controls row under it.
VIDEO_REGION=400x200+240+230
SEEK_REGION=520x30+80+658

# Runs inside the Xvfb display: starts the player, waits until the video area shows a picture,
# takes the second screenshot three seconds later, and waits for the player to quit by itself.
inside_display() {
  local player=$1 stream=$2 shots=$3 quit_after=20
  NO_AT_BRIDGE=1 "$player" --quit-after "$quit_after" "$stream" >"$shots/player.log" 2>&1 &
  local pid=$! shown=
  for _ in $(seq 1 30); do
    sleep 0.5
    import -display "$DISPLAY" -window root "$shots/first.png" 2>/dev/null || continue
    if [ "$(video_spread "$shots/first.png")" = 1 ]; then
      shown=1
      break
    fi
  done
  if [ -n "$shown" ]; then
    sleep 3
    import -display "$DISPLAY" -window root "$shots/second.png"
    if command -v xwininfo >/dev/null; then
      xwininfo -display "$DISPLAY" -root -tree >"$shots/windows.txt"
    fi
  fi
  local status=0
  wait "$pid" || status=$?
  echo "$status" >"$shots/player.status"
}

# 1 when the video region of a screenshot holds more than one colour, else 0.
video_spread() {
  convert "$1" -crop "$VIDEO_REGION" +repage -format '%[fx:standard_deviation>0.02?1:0]' info:
}

# xvfb-run runs this script again with --inside-display.
if [ "${1:-}" = --inside-display ]; then
  shift
  inside_display "$@"
  exit 0
fi

if [ $# -lt 2 ] || [ $# -gt 3 ]; then
  echo "usage: $0 ZM_GTK_PLAYER ZM_ORIGIN [SCREENSHOT_DIR]" >&2
  exit 2
fi
player=$(realpath "$1")
origin=$(realpath "$2")
shots=${3:-$(mktemp -d /tmp/zm-gtk-check.XXXXXX)}
mkdir -p "$shots"
shots=$(realpath "$shots")

fail() {
  echo "check-under-xvfb: FAIL: $*" >&2
  echo "check-under-xvfb: screenshots and logs in $shots" >&2
  exit 1
}

for tool in xvfb-run curl import convert compare; do
  command -v "$tool" >/dev/null || fail "$tool is not installed"
done

work=$(mktemp -d)
origin_pid=
cleanup() {
  if [ -n "$origin_pid" ]; then
    kill "$origin_pid" 2>/dev/null || true
    wait "$origin_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

# Port 0: the origin takes a free loopback port and prints its address once it listens. The
# first run of a machine also makes the sample content with ffmpeg, which takes longer.
: >"$shots/origin.log"
"$origin" --port 0 >"$shots/origin.log" 2>&1 &
origin_pid=$!
base=
for _ in $(seq 1 600); do
  base=$(sed -n 's/^zm-origin serving \(http:[^ ]*\)$/\1/p' "$shots/origin.log")
  [ -n "$base" ] && break
  kill -0 "$origin_pid" 2>/dev/null || fail "the origin exited (see origin.log)"
  sleep 0.2
done
[ -n "$base" ] || fail "the origin did not start within 120 s"
stream="$base/vod/master.m3u8"
curl -fsS -o /dev/null --retry 10 --retry-connrefused --retry-delay 1 "$stream" ||
  fail "the origin does not answer at $stream"

# A fresh application home: no downloads of other runs, none left behind.
ZM_HOME="$work/home" timeout 60 \
  xvfb-run -a -s "-screen 0 1280x720x24" \
  "$(realpath "$0")" --inside-display "$player" "$stream" "$shots" ||
  fail "the run under Xvfb did not finish (see player.log)"

status=$(cat "$shots/player.status" 2>/dev/null || echo none)
[ "$status" = 0 ] || fail "the player did not quit cleanly (exit status $status, see player.log)"
[ -f "$shots/first.png" ] || fail "no screenshot was taken"
[ "$(video_spread "$shots/first.png")" = 1 ] ||
  fail "the video area ($VIDEO_REGION) is one colour: no picture (first.png)"
[ -f "$shots/second.png" ] || fail "no second screenshot"
# GStreamer's video sinks open a window of their own when they are given none.
if [ -f "$shots/windows.txt" ] && grep -q '"GStreamer")' "$shots/windows.txt"; then
  fail "the video plays in a window of its own, not in the player's (windows.txt)"
fi

convert "$shots/first.png" -crop "$SEEK_REGION" +repage "$shots/seek-first.png"
convert "$shots/second.png" -crop "$SEEK_REGION" +repage "$shots/seek-second.png"
changed=$(compare -metric AE -fuzz 10% "$shots/seek-first.png" "$shots/seek-second.png" null: 2>&1 || true)
[ "${changed%% *}" -gt 20 ] 2>/dev/null ||
  fail "the seek bar region ($SEEK_REGION) did not change between the screenshots ($changed pixels)"

echo "check-under-xvfb: OK: picture shown, seek bar moved ($changed pixels); screenshots in $shots"
