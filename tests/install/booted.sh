#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# booted.sh FOLDER: the packages in this folder on a system that systemd has booted: the service, its socket and
# its limits, from `apt install` to purge. It changes the system that it runs on, so it runs as root in a bare
# Debian root of its own (scripts/bare), in which it boots systemd in namespaces.
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$tree/scripts/lib/install.sh"
export DEBIAN_FRONTEND=noninteractive
cd "$tree"

# --- outside --------------------------------------------------------------------------------------

# A group of control groups of its own, as a container has: the real ones are left alone.
boot() {
    groups=$(mktemp -d)
    mount -t cgroup2 cgroup2 "$groups"
    group=$groups/voltis-booted-$$
    mkdir "$group"
    # shellcheck disable=SC2016  # the inner shells expand them
    bash -c 'echo $$ >"$0/cgroup.procs" && exec "$@"' "$group" \
        unshare --mount --propagation private --pid --uts --ipc --net --cgroup --fork --kill-child bash -euc '
            mount --bind / /mnt && cd /mnt
            mount -t proc proc proc
            mount --bind proc/sys proc/sys && mount -o remount,bind,ro proc/sys
            mount -t sysfs -o ro sysfs sys
            mount -t tmpfs tmpfs sys/fs/cgroup 2>/dev/null || true
            mount -t cgroup2 cgroup2 sys/fs/cgroup
            mount -t tmpfs -o mode=755 tmpfs dev
            for name in null zero full random urandom tty; do cp -a "/dev/$name" dev/; done
            mkdir dev/pts dev/shm dev/.outside
            mount -t devpts -o newinstance,ptmxmode=0666,mode=620,gid=5 devpts dev/pts
            ln -s pts/ptmx dev/ptmx && ln -s /proc/self/fd dev/fd
            mount -t tmpfs tmpfs run && mount -t tmpfs -o mode=1777 tmpfs tmp
            pivot_root . dev/.outside && cd / && umount --lazy /dev/.outside
            exec env -i container=other PATH="$PATH" /lib/systemd/systemd systemd.unit=multi-user.target
        ' </dev/null >"$groups.log" 2>&1 &
    outer=$!
    trap end_boot EXIT
    for _ in $(seq 300); do
        init=$(pgrep --full '^/lib/systemd/systemd systemd.unit' | tail -n 1 || true)
        if [ -n "$init" ] && inside systemctl --quiet is-active multi-user.target 2>/dev/null; then return; fi
        kill -0 "$outer" 2>/dev/null || break
        sleep 0.2
    done
    cat "$groups.log" >&2
    echo "booted.sh: systemd does not boot here; it needs namespaces and control groups of its own" >&2
    return 1
}

inside() {
    nsenter --target "$init" --mount --pid --uts --ipc --net --cgroup --root --wd \
        env -i HOME=/root TERM=dumb PATH="$PATH" DEBIAN_FRONTEND=noninteractive "$@"
}

end_boot() {
    kill -KILL "$outer" 2>/dev/null || true
    wait "$outer" 2>/dev/null || true
    sleep 0.5
    find "$group" -depth -type d -exec rmdir {} + 2>/dev/null || true
    umount "$groups"
    rm -rf "$groups" "$groups.log"
}

# --- inside ---------------------------------------------------------------------------------------

checks=0
# check WHAT COMMAND...
check() {
    local what=$1
    shift
    "$@" || { systemctl --no-pager status voltisd.service voltisd.socket || true; fail "$what: $*"; }
    checks=$((checks + 1))
    echo "ok: $what"
}

not() {
    ! "$@"
}

is() {
    [ "$1" = "$2" ] || { echo "'$1' instead of '$2'" >&2; return 1; }
}

main_process() {
    systemctl show --property MainPID --value voltisd.service
}

status_of_process() {
    sed -n "s/^$1:[[:space:]]*//p" "/proc/$(main_process)/status"
}

# As the service's processes are: in its mounts, control group and account, but with no filter of system calls.
as_service() {
    # shellcheck disable=SC2016  # the inner shell expands them
    bash -c 'echo $$ >/sys/fs/cgroup/system.slice/voltisd.service/cgroup.procs
        exec nsenter --target "$0" --mount setpriv --reuid voltis --regid voltis --init-groups "$@"' "$(main_process)" "$@"
}

reads() {
    as_service head -c 0 "$1" 2>"$shop/read" || return 1
}

the_service_is_installed() {
    check "the service runs" systemctl --quiet is-active voltisd.service
    check "and is started with the system" systemctl --quiet is-enabled voltisd.service voltisd.socket
    check "its socket is the group's" is "$(stat -c '%U:%G %a' "$socket")" "root:dialout 660"
    check "its exposure is 3.0 at most" systemd-analyze --no-pager --threshold=30 security voltisd.service >"$shop/security"
    tail -n 1 "$shop/security"
    check "it is nobody but voltis" is "$(ps -o user= -p "$(main_process)")" voltis
    check "of the group dialout" grep -qw "$(getent group dialout | cut -d: -f3)" <(status_of_process Groups)
    check "without capabilities" is "$(status_of_process CapBnd)$(status_of_process CapEff)" "$(printf '0%.0s' {1..32})"
    check "which it cannot get" is "$(status_of_process NoNewPrivs)" 1
    check "with a filter of system calls" is "$(status_of_process Seccomp)" 2
}

its_limits() {
    check "it may write the journal" as_service touch /var/lib/voltis/touched
    rm /var/lib/voltis/touched
    check "and the logs" as_service touch /var/log/voltis/touched
    rm /var/log/voltis/touched
    chown voltis /usr/local
    check "not what its account could" not as_service touch /usr/local/touched
    chown root /usr/local
    mknod -m 666 /run/mem c 1 1
    mknod -m 666 /run/port c 4 64
    check "no device that is none of its own" not reads /run/mem
    check "as systemd has it" grep -q 'Operation not permitted' "$shop/read"
    reads /run/port || true
    check "a serial port" not grep -q 'Operation not permitted' "$shop/read"
    rm /run/mem /run/port
}

# A slow sale, NUMBER, that is at work.
begin_slowly() {
    echo "at data 2 late 3s" >&7
    answers 202 "$1" 0
    wait_until_it_prints "$1"
}

a_stop_waits_for_the_receipt() {
    begin_slowly 1
    check "it stops" systemctl stop voltisd.service voltisd.socket
    check "after the receipt" tape_has 1
    journal_knows 1
    check "the socket is gone" test ! -e "$socket"
    start_service
}

a_service_that_dies_leaves_the_receipt() {
    begin_slowly 2
    kill -KILL "$(main_process)"
    check "who asks waits at the socket" answers 200 2 60
    check "the receipt was printed once" tape_has 2
    journal_knows 1 2
}

wait_until_it_stops() {
    for _ in $(seq 200); do
        if [ "$(systemctl show --property ActiveState --value voltisd.service)" != active ]; then return; fi
        sleep 0.01
    done
    return 1
}

a_restart_lets_callers_wait() {
    begin_slowly 3
    systemctl restart voltisd.service &
    local restart=$!
    check "the service begins to stop" wait_until_it_stops
    check "another job is taken" answers 200 4 60
    wait "$restart"
    check "both are printed" tape_has 4
    journal_knows 3 4
}

a_reload_with_a_mistake_fails() {
    cp /etc/voltis/voltisd.conf "$shop/voltisd.conf"
    echo "Nonsense=1" >>/etc/voltis/voltisd.conf
    check "a reload fails" not systemctl reload voltisd.service
    check "the line is named" grep -q 'voltisd.conf:[0-9]*: there is no key Nonsense=' <(journalctl --unit voltisd.service)
    check "the service goes on" answers 200 4 0
    cp "$shop/voltisd.conf" /etc/voltis/voltisd.conf
    check "a reload of what makes sense is done" systemctl reload voltisd.service
    check "and the service goes on" answers 200 4 0
}

removed_and_purged() {
    check "apt removes it" apt-get -q -y remove voltisd
    check "nothing of it runs" not pgrep -x voltisd
    check "the socket is gone" test ! -e "$socket"
    check "its configuration stays" test -s /etc/voltis/voltisd.conf
    echo >/etc/voltis/tokens
    check "apt purges it" apt-get -q -y purge voltisd
    check "its configuration is gone, and the tokens" test ! -e /etc/voltis/voltisd.conf -a ! -e /etc/voltis/tokens
    check "that of the registers stays" test -s /etc/voltis/voltis.ini
    check "run prints as before" as_user voltisctl run --job "$user-5" sale.txt
    check "once" tape_has 5
}

in_the_booted_system() {
    . debian/tests/shop.sh
    systemctl is-system-running --wait || true
    check "the service runs after the boot" systemctl --quiet is-active voltisd.service
    debian/tests/service
    check "the test of the package leaves it running" systemctl --quiet is-active voltisd.service
    open_shop
    set_key Device "$shop/line"
    start_service
    the_service_is_installed
    its_limits
    a_stop_waits_for_the_receipt
    a_service_that_dies_leaves_the_receipt
    a_restart_lets_callers_wait
    a_reload_with_a_mistake_fails
    was_served=
    removed_and_purged
    echo "the service on a booted system: $checks checks, all passed"
}

# --------------------------------------------------------------------------------------------------

if [ "$1" = --inside ]; then
    in_the_booted_system
    exit
fi
packages=("$(realpath "$1"/voltis_*.deb)" "$(realpath "$1"/voltisd_*.deb)")
if [ "$(id -u)" -ne 0 ] || [ -e /etc/voltis ] || package_installed voltis; then
    echo "booted.sh: only as root in a bare root of its own" >&2
    exit 2
fi
need_packages systemd dbus procps curl dpkg-repack
apt-get -q -y install "${packages[@]}" >/dev/null
boot
inside "$tree/tests/install/booted.sh" --inside
