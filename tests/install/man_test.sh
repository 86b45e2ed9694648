#!/usr/bin/env bash
# The man pages are those of the programs' version, mention every option that their program's
# --help lists, and render without a warning from groff.
#   man_test.sh MAN_DIR CLI [APP]
set -euo pipefail
export QT_QPA_PLATFORM=offscreen  # --help needs no display
man_dir=$1
status=0

check() {
    local page=$man_dir/$1.1 program=$2
    # The options as --help lists them, against the page's source with \- unescaped.
    local options text
    options=$("$program" --help | grep -oE -- '--[a-z][a-z-]*' | sort -u)
    text=$(sed 's/\\-/-/g' "$page")
    [ -n "$options" ] || { echo "$program --help lists no option" >&2; status=1; }
    local version
    version=$("$program" --version | grep -oE '[0-9]+(\.[0-9]+)+' | head -1)
    if ! grep -qF " $version\"" <<<"$(head -1 "$page")"; then
        echo "$1.1 is not that of version $version: $(head -1 "$page")" >&2
        status=1
    fi
    for option in $options; do
        if ! grep -qF -- "$option" <<<"$text"; then
            echo "$1.1 does not mention $option" >&2
            status=1
        fi
    done
    if command -v man >/dev/null; then
        local warnings
        warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 \
            man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
        if [ -n "$warnings" ]; then
            echo "$1.1 renders with warnings:" >&2
            echo "$warnings" >&2
            status=1
        fi
    else
        echo "man is not installed: the pages' rendering is not checked"
    fi
}

check pixmera-veltro-cli "$2"
if [ -n "${3:-}" ]; then
    check pixmera-veltro "$3"
fi
exit $status
