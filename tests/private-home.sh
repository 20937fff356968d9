# Sourced by the test wrappers: a runtime folder, home and settings of the test's own in
# $scratch (also VANTALO_SCRATCH), nothing of the session it was started from, and all of it
# removed at the end, with the document portal's mount where a desktop started one.
scratch=$(mktemp -d)
mkdir -m 700 -p "$scratch/runtime" "$scratch/home"
export XDG_RUNTIME_DIR="$scratch/runtime" HOME="$scratch/home" VANTALO_SCRATCH="$scratch"
export XDG_CONFIG_HOME="$scratch/home/.config" XDG_DATA_HOME="$scratch/home/.local/share"
unset DISPLAY WAYLAND_DISPLAY XAUTHORITY XDG_SESSION_TYPE
remove_scratch() {
  umount -l "$scratch/runtime/doc" 2>/dev/null || fusermount -u "$scratch/runtime/doc" 2>/dev/null || true
  rm -rf "$scratch" 2>/dev/null || true
}
trap remove_scratch EXIT

# Offers only the named portals of those installed (the frontend would otherwise lend a desktop
# an interface its portals lack from any other installed one, with nothing behind it).
only_portals() {
  mkdir -p "$scratch/portals"
  for p in "$@"; do cp "/usr/share/xdg-desktop-portal/portals/$p.portal" "$scratch/portals/"; done
  export XDG_DESKTOP_PORTAL_DIR="$scratch/portals"
}

# wait_for WHAT SECONDS COMMAND...: polls COMMAND until it succeeds; after SECONDS it fails,
# naming WHAT did not come (the limits are generous: a loaded machine or a sanitizer build is slow).
wait_for() {
  local what=$1 seconds=$2
  shift 2
  local deadline=$((SECONDS + seconds))
  until "$@" >/dev/null 2>&1; do
    if ((SECONDS >= deadline)); then
      echo "timed out after ${seconds} s waiting for $what" >&2
      return 1
    fi
    sleep 0.1
  done
}
export -f wait_for
