# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# Installing what a script needs from the distribution; meant to be sourced.
# shellcheck shell=bash

# Runs a command with the rights to install: as it is for root, with sudo otherwise.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "Neither root nor sudo: please install as root: $*" >&2
        return 1
    fi
}

package_installed() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# need_packages NAME...: installs those that are missing, and asks for nothing when none is.
need_packages() {
    if ! command -v dpkg-query >/dev/null; then
        echo "Not a Debian system; these packages or their likes are needed: $*" >&2
        return 0
    fi
    local package missing=()
    for package in "$@"; do
        package_installed "$package" || missing+=("$package")
    done
    [ "${#missing[@]}" -gt 0 ] || return 0
    echo "Installing ${missing[*]} ..."
    if [ -z "${packages_updated:-}" ]; then
        as_root env DEBIAN_FRONTEND=noninteractive apt-get update -q
        packages_updated=yes
    fi
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends \
        "${missing[@]}"
}

# need_clang: clang++ with its linker and the sanitizers' runtime, whose package has clang's version in
# its name.
need_clang() {
    need_packages clang lld
    if ! command -v dpkg-query >/dev/null; then return 0; fi
    local version
    version=$(clang -dumpversion)
    need_packages "libclang-rt-${version%%.*}-dev"
}

# need_build_packages: what debian/control asks for to build the package of the current folder.
# dpkg-checkbuilddeps names what of it is not there, in the language of its caller.
need_build_packages() {
    need_packages dpkg-dev
    local said missing status=0
    said=$(LC_ALL=C dpkg-checkbuilddeps 2>&1) || status=$?
    missing=$(sed -n 's/.*[Uu]nmet build dependencies: //p' <<<"$said" | sed 's/([^)]*)//g; s/:[a-z]*//g')
    if [ "$status" -ne 0 ] && [ -z "$missing" ]; then
        echo "dpkg-checkbuilddeps failed ($status): $said" >&2
        return 1
    fi
    # shellcheck disable=SC2086  # a word a package
    need_packages $missing
}
