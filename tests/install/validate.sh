#!/usr/bin/env bash
# Runs a validator (the command and its arguments) when it is installed; skipped otherwise.
if ! command -v "$1" >/dev/null; then
    echo "$1 is not installed (scripts/install-deps installs it): skipped"
    exit 77
fi
exec "$@"
