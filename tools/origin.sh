# Sourced by the tool scripts: start_origin BIN LOG [ARGS...] starts zm-origin from BIN on a
# free loopback port with its output in LOG, waits until it serves (making its content with
# ffmpeg on first use may take a while), and sets origin_pid and origin (its base URL).
start_origin() {
  local bin=$1 log=$2; shift 2
  "$bin/zm-origin" --port 0 "$@" >"$log" 2>&1 &
  origin_pid=$!
  for _ in $(seq 1 900); do
    grep -q '^zm-origin serving' "$log" && break
    kill -0 "$origin_pid" 2>/dev/null || { cat "$log" >&2; return 1; }
    sleep 0.1
  done
  origin=$(awk '/^zm-origin serving/ {print $3}' "$log")
  [ -n "$origin" ] || { echo "zm-origin did not start:" >&2; cat "$log" >&2; return 1; }
}
