#!/usr/bin/env bash
# Sets up a Debian 12 machine, builds everything and starts the application.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/bootstrap.sh
cmake --preset dev >/dev/null
cmake --build --preset dev -j "$(nproc)"

app="build/dev/app/Orvistelle FCP Beauty.app/Contents/MacOS/Orvistelle FCP Beauty"
# This build's endpoints all point at the development backend on 127.0.0.1:54321: start it unless something
# already listens there. It runs in its own session, so that it outlives this script where it should.
listening() { (exec 3<>/dev/tcp/127.0.0.1/54321) 2>/dev/null; }
devbackend=
if ! listening; then
  setsid build/dev/tools/devbackend/orvistelle-devbackend >build/dev/devbackend.log 2>&1 </dev/null &
  devbackend=$!
  echo "$devbackend" >build/dev/devbackend.pid
  for _ in $(seq 50); do listening && break; sleep 0.1; done
  listening || echo "The development backend did not start; see build/dev/devbackend.log." >&2
fi
echo "What the app sends to the development backend: http://127.0.0.1:54321/dev"
if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
  # The backend started here stops when the app quits.
  [ -z "$devbackend" ] || trap 'kill "$devbackend" 2>/dev/null; rm -f build/dev/devbackend.pid' EXIT
  "$app"
  exit
fi

# No display: show the window on a virtual one long enough to photograph it, then close it. What the app sent stays
# on view at /dev afterwards, so the backend keeps running, whatever becomes of the photograph.
if [ -n "$devbackend" ]; then
  trap 'echo "The development backend keeps running (process $devbackend, log build/dev/devbackend.log)."
        echo "Stop it with: kill \$(cat build/dev/devbackend.pid) && rm build/dev/devbackend.pid"' EXIT
fi
shot="$PWD/build/dev/screenshots/window.png"
mkdir -p "$(dirname "$shot")"
xvfb-run --auto-servernum --server-args="-screen 0 640x720x24" bash -c '
  "$1" &
  app=$!
  for _ in $(seq 100); do
    xwininfo -name "Orvistelle FCP Beauty" 2>/dev/null | grep -q IsViewable && break
    kill -0 "$app" 2>/dev/null || exit 1
    sleep 0.1
  done
  sleep 1
  id=$(xwininfo -name "Orvistelle FCP Beauty" | awk "/Window id:/ {print \$4}")
  import -window "$id" "$2"
  status=$?
  kill "$app"
  wait "$app" 2>/dev/null
  exit $status
' capture "$app" "$shot"
echo "No display here, so the window ran on a virtual one (Xvfb). Screenshot: $shot"
