#!/usr/bin/env bash
# Installs the build into a scratch folder under /usr, as the Debian package does, and checks
# that every file is in its place and that the installed programs run on the installed sample.
#   install_test.sh CMAKE BUILD_DIR SOURCE_DIR APP_BUILT(0|1)
set -euo pipefail
cmake=$1 build=$2 source=$3 app=$4
id=com.pixmera.Veltro
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() {
    echo "install_test: $*" >&2
    exit 1
}

DESTDIR="$scratch/root" "$cmake" --install "$build" --prefix /usr >"$scratch/install.log"
usr=$scratch/root/usr

expected=(
    bin/pixmera-veltro-cli
    share/pixmera-veltro/sample-cells.tif
    share/man/man1/pixmera-veltro-cli.1.gz
)
if [ "$app" = 1 ]; then
    expected+=(
        bin/pixmera-veltro
        share/man/man1/pixmera-veltro.1.gz
        "share/applications/$id.desktop"
        "share/metainfo/$id.metainfo.xml"
        "share/icons/hicolor/scalable/apps/$id.svg"
    )
    for size in 16 32 48 64 128 256; do
        expected+=("share/icons/hicolor/${size}x${size}/apps/$id.png")
    done
fi
for file in "${expected[@]}"; do
    [ -f "$usr/$file" ] || fail "$file was not installed"
done
[ -x "$usr/bin/pixmera-veltro-cli" ] || fail "pixmera-veltro-cli is not executable"
gzip -t "$usr/share/man/man1/pixmera-veltro-cli.1.gz" || fail "the man page is no gzip file"
if [ -d "$source/resources/help" ]; then
    diff -r "$source/resources/help" "$usr/share/pixmera-veltro/help" >&2 ||
        fail "the help book was not installed whole"
fi

# The installed program on the installed sample reports what the built one does on the source's.
"$usr/bin/pixmera-veltro-cli" "$usr/share/pixmera-veltro/sample-cells.tif" >"$scratch/installed.txt" ||
    fail "the installed pixmera-veltro-cli failed on the installed sample"
"$build/pixmera-veltro-cli" "$source/resources/sample-cells.tif" >"$scratch/built.txt"
cmp -s "$scratch/installed.txt" "$scratch/built.txt" ||
    fail "the installed pixmera-veltro-cli reports otherwise than the built one"
grep -q '^Rr	' "$scratch/installed.txt" || fail "the installed report has no Pearson's Rr"

if [ "$app" = 1 ]; then
    # Each PNG is as large as the theme folder it sits in says (width and height from IHDR).
    for size in 16 32 48 64 128 256; do
        png=$usr/share/icons/hicolor/${size}x${size}/apps/$id.png
        read -r w0 w1 w2 w3 h0 h1 h2 h3 < <(od -An -tu1 -j16 -N8 "$png")
        w=$(((w0 << 24) | (w1 << 16) | (w2 << 8) | w3))
        h=$(((h0 << 24) | (h1 << 16) | (h2 << 8) | h3))
        [ "$w" = "$size" ] && [ "$h" = "$size" ] || fail "$png is ${w}x$h, not ${size}x$size"
    done
    # The desktop file starts a program that was installed, with an icon that was.
    desktop=$usr/share/applications/$id.desktop
    program=$(sed -n 's/^Exec=\([^ ]*\).*/\1/p' "$desktop")
    [ -x "$usr/bin/$program" ] || fail "the desktop file starts $program, which is not installed"
    grep -qx "Icon=$id" "$desktop" || fail "the desktop file does not name the icon $id"
    # Answered on a terminal without a display, as a user typing it over ssh would.
    version=$(env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM timeout 60 \
        "$usr/bin/pixmera-veltro" --version) ||
        fail "the installed pixmera-veltro --version failed without a display"
    grep -qF "$(sed -n 's/.*<release version="\([^"]*\)".*/\1/p' \
        "$usr/share/metainfo/$id.metainfo.xml" | head -1)" <<<"$version" ||
        fail "the newest release in the metainfo is not the program's version ($version)"
    # The metainfo, the desktop file and the icons, checked together as installed.
    if command -v appstreamcli >/dev/null; then
        appstreamcli validate-tree --no-net "$scratch/root" >"$scratch/tree.log" 2>&1 ||
            { cat "$scratch/tree.log" >&2; fail "appstreamcli validate-tree failed"; }
    fi
fi
echo "installed and checked in $scratch/root"
