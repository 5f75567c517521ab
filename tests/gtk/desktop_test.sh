#!/usr/bin/env bash
# The camera prompt on a real desktop, set up here and thrown away after:
# Xvfb, a D-Bus session, PipeWire and WirePlumber, a test camera, the camera
# portal with its GTK back end. `kivfll demo --window --portal-camera` runs
# twice as a sandboxed app while xdotool answers the portal's dialog: granted,
# the attempt succeeds over the camera's picture; denied, it ends in the
# camera permission error.
# Opt-in (scripts/test desktop); exits 77 (skipped) when a piece is missing.
#   desktop_test.sh KIVFLL
set -uo pipefail
kivfll="$1"

skip() {
  echo "desktop test skipped: $*"
  exit 77
}
for tool in Xvfb dbus-daemon gdbus pipewire wireplumber gst-launch-1.0 gst-inspect-1.0 xdotool bwrap \
  /usr/libexec/xdg-desktop-portal /usr/libexec/xdg-desktop-portal-gtk; do
  command -v "$tool" >/dev/null || skip "$tool is missing (scripts/setup --desktop installs it)"
done
for element in videotestsrc pipewiresink; do
  gst-inspect-1.0 "$element" >/dev/null 2>&1 || skip "GStreamer has no $element (scripts/setup --desktop)"
done

# Every process started here, the bus's activated services included, is in
# this script's own process group, and goes with it.
[ "$(ps -o pgid= $$ | tr -d ' ')" = "$$" ] || exec setsid --wait "$0" "$@"
dir="$(mktemp -d)"
cleanup() {
  trap '' TERM
  kill -TERM -- -$$ 2>/dev/null
  # The document portal's mount goes a moment after its process.
  for _ in $(seq 50); do
    rm -rf "$dir" 2>/dev/null && break
    sleep 0.1
  done
}
trap cleanup EXIT
trap 'exit 1' TERM INT

# Polls `check` every 0.1 s for at most 20 s.
wait_for() {
  local what="$1"
  shift
  for _ in $(seq 200); do
    "$@" >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  echo "desktop test: no $what after 20 s; the logs:"
  tail -n 20 "$dir"/*.log
  exit 1
}

chmod 700 "$dir"
mkdir "$dir/home"
export HOME="$dir/home" XDG_RUNTIME_DIR="$dir" XDG_DATA_HOME="$dir/data" XDG_CONFIG_HOME="$dir/config"
export XDG_CACHE_HOME="$dir/cache" XDG_STATE_HOME="$dir/state"
# The GTK back end serves GNOME; without an accessibility bus nobody asks
# for one.
export XDG_CURRENT_DESKTOP=GNOME NO_AT_BRIDGE=1 GTK_A11Y=none

Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$dir/display" >"$dir/xvfb.log" 2>&1 &
wait_for "X display" test -s "$dir/display"
export DISPLAY=":$(cat "$dir/display")"
# Started after the rest of the environment: the services it starts inherit it.
dbus-daemon --session --nofork --address="unix:path=$dir/bus" >"$dir/dbus.log" 2>&1 &
wait_for "D-Bus session" test -S "$dir/bus"
export DBUS_SESSION_BUS_ADDRESS="unix:path=$dir/bus"
pipewire >"$dir/pipewire.log" 2>&1 &
wait_for "PipeWire" test -S "$dir/pipewire-0"
wireplumber >"$dir/wireplumber.log" 2>&1 &
# The portal counts as cameras the video sources whose role is Camera; YUY2
# is what a webcam usually offers raw.
gst-launch-1.0 videotestsrc is-live=true ! video/x-raw,format=YUY2,width=320,height=240,framerate=30/1 ! pipewiresink mode=provide \
  client-name=kivfll-test-camera stream-properties="props,media.class=Video/Source,media.role=Camera" \
  >"$dir/camera.log" 2>&1 &
camera_present() {
  gdbus call --session -d org.freedesktop.portal.Desktop -o /org/freedesktop/portal/desktop \
    -m org.freedesktop.DBus.Properties.Get org.freedesktop.portal.Camera IsCameraPresent | grep -q true
}
wait_for "camera on the portal" camera_present

# kivfll runs as a Flatpak app would: in a mount namespace whose root holds
# a /.flatpak-info naming the app. Unsandboxed, every process is the one app
# "" to the portal, whose remembered first answer would decide the second
# case (and later portals grant it without asking); here each case is an app
# of its own.
sandboxed() {
  local app="$1"
  shift
  printf '[Application]\nname=%s\n' "$app" >"$dir/$app.flatpak-info"
  local binds=()
  for entry in /*; do
    if [ -L "$entry" ]; then
      binds+=(--symlink "$(readlink "$entry")" "$entry")
    elif [ -d "$entry" ] && [[ ! "$entry" =~ ^/(proc|dev|tmp)$ ]]; then
      binds+=(--ro-bind "$entry" "$entry")
    fi
  done
  bwrap "${binds[@]}" --proc /proc --dev-bind /dev /dev --bind /tmp /tmp \
    --ro-bind "$dir/$app.flatpak-info" /.flatpak-info --die-with-parent "$@"
}

failed=0
# The dialog opens with Deny focused: Tab then Return grants; Escape closes
# it, which denies.
for case in "grant Tab+Return 0 success first.frame" "deny Escape 2 cameraPermission ^outcome"; do
  read -r name keys status outcome picture <<<"$case"
  G_MESSAGES_DEBUG=kivfll-gtk sandboxed "com.example.Kivfll.${name^}" timeout 60 "$kivfll" demo --window \
    --portal-camera >"$dir/$name.out" 2>&1 &
  attempt=$!
  wait_for "camera dialog" xdotool search --onlyvisible --classname xdg-desktop-portal-gtk
  xdotool search --onlyvisible --classname xdg-desktop-portal-gtk windowfocus --sync key ${keys//+/ } 2>/dev/null
  wait "$attempt"
  got=$?
  if [ "$got" != "$status" ] || ! grep -q "^outcome: .*$outcome" "$dir/$name.out" ||
    ! grep -q "$picture" "$dir/$name.out"; then
    echo "desktop test: ask-$name: exit $got, wanted $status, an outcome of $outcome and $picture:"
    cat "$dir/$name.out"
    failed=1
  else
    echo "ask-$name: $(grep '^outcome:' "$dir/$name.out")"
  fi
done
exit $failed
