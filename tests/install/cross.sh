#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# cross.sh armhf|arm64: builds the programs for an ARM computer, and runs them and a part of the tests
# under qemu-user. It adds a foreign architecture to the system, so it runs as root in a bare Debian root
# (scripts/bare).
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$tree/scripts/lib/install.sh"

case "${1:-}" in
    armhf) processor=arm triplet=arm-linux-gnueabihf bits=32 ;;
    arm64) processor=aarch64 triplet=aarch64-linux-gnu bits=64 ;;
    *) echo "Usage: scripts/bare tests/install/cross.sh armhf|arm64" >&2; exit 2 ;;
esac
arch=$1
if [ "$(id -u)" -ne 0 ] || package_installed voltis; then
    echo "cross.sh: only as root in a bare root of its own" >&2
    exit 2
fi

dpkg --add-architecture "$arch"
need_packages cmake ninja-build g++ "g++-$triplet" qemu-user-static bubblewrap python3 libcli11-dev nlohmann-json3-dev \
    zbar-tools
# Those of the other architecture are asked for by their full names.
DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends \
    "libstdc++6:$arch" "barcode:$arch" "libsqlite3-dev:$arch" "nettle-dev:$arch" \
    "libmicrohttpd-dev:$arch" "libsystemd-dev:$arch" "libgtest-dev:$arch" "libgmock-dev:$arch" >/dev/null

# Inside /usr, which the driver's private root has as well.
build=/usr/local/lib/voltis-$arch
cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVOLTIS_PRECOMPILE=ON \
    -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR="$processor" -DCMAKE_CXX_COMPILER="$triplet-g++" \
    -DCMAKE_CROSSCOMPILING_EMULATOR="/usr/bin/qemu-$processor-static" -DCMAKE_LIBRARY_ARCHITECTURE="$triplet" >/dev/null
tests=(Units_test Files_test ECR_test Processor_test Barcode_test Check_test)
cmake --build "$build" --target voltis_installed "${tests[@]}"
file=$(readelf -h "$build/voltis")
grep -q "Class: *ELF$bits" <<<"$file" || { echo "not for $bits bits: $file"; exit 1; }
for program in voltis voltisctl voltisd; do
    "$tree/tests/outside/hardening.sh" "$build/$program"
done

# A test may be in parts, NAME_1_of_2; each of them has to be among those that passed.
names=$(IFS='|' && echo "${tests[*]}")
ctest --test-dir "$build" --parallel "$(nproc)" --tests-regex "^($names)(_[0-9]+_of_[0-9]+)?\$" --output-on-failure \
    --no-tests=error | tee "$build/passed"
for test in "${tests[@]}"; do
    grep -Eq " $test(_1_of_[0-9]+)? [. ]+Passed" "$build/passed" || { echo "$test was not run"; exit 1; }
done

# qemu runs the companion; the companion starts bubblewrap, which is of this machine, and that the driver.
printf '#!/bin/sh\nexec /usr/bin/qemu-%s-static %s/voltis "$@"\n' "$processor" "$build" >"$build/driver"
chmod 755 "$build/driver"
companion=("/usr/bin/qemu-$processor-static" "$build/voltisctl")
said=$("${companion[@]}" try --driver "$build/driver" "$tree/examples/first-receipt.txt")
echo "$said"
grep -q '^RECEIPT 000001$' <<<"$said"
# What the driver does, not only what its parts do, with a byte that the encoder takes in another way where
# char is unsigned.
printf 'BARCODE: DATA=A\302B; TYPE=CODE128\n' >"$build/shift.txt"
said=$("${companion[@]}" try --driver "$build/driver" "$build/shift.txt" || true)
grep -qa 'Bad barcode format' <<<"$said" || { echo "not refused: $said"; exit 1; }
"${companion[@]}" check "$tree"/examples/first-receipt.txt
"${companion[@]}" trace "$tree/tests/logs/lost-answer.log" | diff "$tree/tests/logs/lost-answer.trace" -
echo "cross: $arch: a sale on the emulated register, and $(printf '%s ' "${tests[@]}")passed under qemu-user"
