#!/usr/bin/env bash
# Installs the Debian packages listed in scripts/packages.txt (one or more a
# line, # comments) that are not installed yet; does nothing when all are.
# Run it directly, or source it and call install_packages. Uses sudo when
# not root.

missing_packages() {
    local list pkg
    list="$(dirname "${BASH_SOURCE[0]}")/packages.txt"
    grep -v '^[[:space:]]*#' "$list" | tr -s '[:space:]' '\n' | sed '/^$/d' | sort -u |
        while read -r pkg; do
            # dpkg-query also knows removed packages: read the status, not the exit code.
            if [ "$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null)" != "install ok installed" ]; then
                echo "$pkg"
            fi
        done
}

install_packages() {
    local missing sudo=""
    missing=$(missing_packages)
    [ -z "$missing" ] && return 0
    echo "== installing: $(echo $missing)"
    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null || { echo "need root or sudo to install: $missing" >&2; return 1; }
        sudo="sudo"
    fi
    # shellcheck disable=SC2086
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -qq &&
        $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
    set -euo pipefail
    install_packages
fi
