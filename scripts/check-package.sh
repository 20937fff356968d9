#!/usr/bin/env bash
# Builds the .deb from a configured build tree and checks it as a Debian 12 machine would take it:
# the files a desktop installation needs, a valid launcher and AppStream file, dependencies apt
# can resolve here, and a binary that starts. scripts/check-package.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd "$build" && cpack -G DEB -B "$work/out" >/dev/null)
deb=$(ls "$work"/out/vantalo_*.deb)
echo "Built $(basename "$deb")"

contents=$(dpkg-deb -c "$deb" | awk '{print $6}')
for f in ./usr/bin/vantalo ./usr/share/applications/vantalo.desktop \
         ./usr/share/metainfo/com.vantalo.app.metainfo.xml \
         ./usr/share/icons/hicolor/16x16/apps/vantalo.png ./usr/share/icons/hicolor/48x48/apps/vantalo.png \
         ./usr/share/icons/hicolor/256x256/apps/vantalo.png; do
  grep -qx "$f" <<<"$contents" || { echo "missing from the package: $f" >&2; exit 1; }
done
depends=$(dpkg-deb -f "$deb" Depends)
grep -q 'libqt6widgets6' <<<"$depends" || { echo "Depends lacks Qt: $depends" >&2; exit 1; }
grep -q 'libqt6keychain' <<<"$depends" || { echo "Depends lacks QtKeychain: $depends" >&2; exit 1; }

dpkg-deb -x "$deb" "$work/root"
desktop-file-validate "$work/root/usr/share/applications/vantalo.desktop"
grep -qx 'Exec=vantalo --toggle' "$work/root/usr/share/applications/vantalo.desktop"
appstreamcli validate --no-net --pedantic "$work/root/usr/share/metainfo/com.vantalo.app.metainfo.xml" >/dev/null \
  || appstreamcli validate --no-net "$work/root/usr/share/metainfo/com.vantalo.app.metainfo.xml"

# apt resolves the package's dependencies from Debian 12's archive without installing anything.
apt-get install --simulate --no-install-recommends "$deb" >/dev/null
version=$("$work/root/usr/bin/vantalo" --version)
[ "$version" = "vantalo $(dpkg-deb -f "$deb" Version)" ] || { echo "unexpected: $version" >&2; exit 1; }
echo "Package OK: $depends"
