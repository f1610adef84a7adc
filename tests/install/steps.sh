# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# The steps of shop.sh, in their order; each leaves the shop as the next one finds it.
# shellcheck shell=bash disable=SC2154  # $package, $service, $work, $examples, $pages are of shop.sh

checks=0
begin=$SECONDS

step() {
    printf '\n### %s (%d s)\n' "$*" $((SECONDS - begin))
}

# check WHAT COMMAND...
check() {
    local what=$1
    shift
    if ! "$@"; then
        echo "FAILED: $what: $*" >&2
        exit 1
    fi
    checks=$((checks + 1))
    echo "ok: $what"
}

# ends_with STATUS COMMAND...: the exit status, what was said is in $work/said.
ends_with() {
    local expected=$1 status=0
    shift
    "$@" >"$work/said" 2>&1 </dev/null || status=$?
    if [ "$status" -eq "$expected" ]; then return 0; fi
    echo "exit status $status instead of $expected, and:"
    cat "$work/said"
    return 1
}

not() {
    ! "$@"
}

# As somebody who has just logged in.
as() {
    local user=$1
    shift
    runuser -u "$user" -- env -C "/home/$user" HOME="/home/$user" PATH=/usr/bin:/bin "$@"
}

receipts() {
    grep -c '^RECEIPT ' "$work/tape" || true
}

receipts_are() {
    [ "$(receipts)" -eq "$1" ]
}

apt_quiet() {
    apt-get -q -y "$@" >"$work/apt" 2>&1 </dev/null || {
        cat "$work/apt"
        return 1
    }
}

# A /dev of this root's own, so that a port can be put into it.
own_devices() {
    local name dev=$work/dev
    mkdir "$dev"
    mount -t tmpfs -o mode=755 tmpfs "$dev"
    for name in null zero full random urandom tty; do
        cp -a "/dev/$name" "$dev/"
    done
    mkdir "$dev/pts" "$dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666,mode=620,gid=5 devpts "$dev/pts"
    mount -t tmpfs -o mode=1777 tmpfs "$dev/shm"
    ln -s pts/ptmx "$dev/ptmx"
    ln -s /proc/self/fd "$dev/fd"
    touch "$dev/ttyS0"
    mount --rbind "$dev" /dev
}

# The emulated register at /dev/ttyS0, with the rights that udev gives a port.
connect_register() {
    mkfifo "$work/desk"
    voltisctl emulate --strict --link "$work/line" <"$work/desk" >"$work/tape" 2>"$work/complaints" &
    # shellcheck disable=SC2034  # shop.sh ends it
    register=$!
    exec 7>"$work/desk"
    local pause
    for pause in $(seq 100); do
        if [ -L "$work/line" ]; then break; fi
        sleep 0.1
    done
    [ -L "$work/line" ] || { echo "no register after $pause pauses"; return 1; }
    local port
    # As the page on integration says.
    chgrp dialout "$work/line" && chmod 660 "$work/line"
    port=$(realpath "$work/line")
    mount --bind "$port" /dev/ttyS0
}

new_user() {
    useradd --create-home --groups "$2" "$1"
    cp "$examples"/*.txt "/home/$1/"
    chown -R "$1" "/home/$1"
}

set_key() {
    sed -i "s/^$1=.*/$1=$2/" /etc/voltis/voltis.ini
}

# types_as USER FOLDER COMMANDS: lines of a page, in a shell of this user, which ends with the first that
# fails. Whoever types them says yes to apt. What they say is in $work/said.
types_as() {
    if [ -z "$3" ]; then echo "there is nothing to type"; return 1; fi
    printf '%s\n' "$3" | sed 's/^/$ /'
    runuser -u "$1" -- env -C "$2" HOME="$(getent passwd "$1" | cut -d: -f6)" PATH="$PATH" \
        bash -euc "$3" >"$work/said" 2>&1 <<<y && return
    cat "$work/said"
    return 1
}

# The first line of README builds the package, which is there already; the others are typed as they are.
install_package() {
    step "installing, as README says"
    own_devices
    useradd --create-home pos
    mkdir "$work/build"
    ln -s "$(dirname "$package")" "$work/build/packages"
    local lines
    lines=$(commands_of "$pages/README.md" "## Installing" 1)
    check "README begins with building the package" test "$(head -n 1 <<<"$lines")" = "scripts/package build/packages"
    apt-get -q update >/dev/null
    first_minute=$SECONDS
    check "the package is installed by the lines after that" types_as root "$work" "$(tail -n +2 <<<"$lines")"
    check "the register is connected" connect_register
}

a_first_receipt() {
    step "a new user's first receipt, as README says"
    local lines
    lines=$(commands_of "$pages/README.md" "## Installing" 2)
    check "README's lines print" types_as pos /home/pos "$lines"
    check "one receipt is on the tape" receipts_are 1
    echo "from apt install to the receipt: $((SECONDS - first_minute)) s"
    lines=$(commands_of "$pages/docs/setup.md" "## Installing" 3)
    check "the lines that try without a register work" types_as pos /home/pos "$lines"
    check "and print nothing" receipts_are 1
}

the_driver_alone() {
    step "the driver alone"
    new_user anna dialout
    check "the driver ends with 0" ends_with 0 as anna voltis first-receipt.txt
    check "two receipts are on the tape" receipts_are 2
    check "the standard log has the run" grep -q 'Command line : "voltis" first-receipt.txt' /var/log/voltis/voltis.log
    new_user guest users
    check "somebody outside the group is refused" ends_with 2 as guest voltis first-receipt.txt
    check "and nothing is printed" receipts_are 2
}

a_job_is_printed_once() {
    step "voltisctl run"
    check "a job is printed" ends_with 0 as anna voltisctl run --job 2 first-receipt.txt
    check "three receipts are on the tape" receipts_are 3
    check "the same job again is answered" ends_with 0 as anna voltisctl run --job 2 first-receipt.txt
    check "and not printed" receipts_are 3
    check "the journal is the shop's" test -f /var/lib/voltis/journal.db
    local readable
    check "which anna can read" test "$(readable_by anna | grep -cx /var/lib/voltis/journal.db)" -eq 1
    readable=$(readable_by guest)
    check "and others nothing there (readable: ${readable:-none})" test -z "$readable"
    readable=$(find /var/lib/voltis ! -type l -perm /o=rwx)
    check "as the modes say, too (of others: ${readable:-none})" test -z "$readable"
}

# What this user can read in the journal's folder.
readable_by() {
    local path
    find /var/lib/voltis ! -type l | while read -r path; do
        if runuser -u "$1" -- test -r "$path"; then echo "$path"; fi
    done
}

a_second_user() {
    step "a second user"
    new_user bert dialout
    check "the driver ends with 0" ends_with 0 as bert voltis first-receipt.txt
    check "four receipts are on the tape" receipts_are 4
    check "anna's job is not printed again" ends_with 0 as bert voltisctl run --job 2 first-receipt.txt
    check "four receipts are on the tape still" receipts_are 4
    check "a job of his own is" ends_with 0 as bert voltisctl run --job 3 first-receipt.txt
    check "five receipts are on the tape" receipts_are 5
    check "anna sees all jobs" ends_with 0 as anna voltisctl jobs
    check "(three of them)" test "$(grep -cE ' done +printed ' "$work/said")" -eq 3
}

# Whoever makes a log has a umask; the folder's default ACL is stronger. The driver alone makes it, for
# voltisctl opens it to the group by itself.
a_log_first_written_by_root() {
    step "a log that root has made"
    rm /var/log/voltis/*.log /var/lib/voltis/journal.db*
    check "root may print, whatever its umask" ends_with 0 bash -c "umask 077; cd /home/anna && voltis first-receipt.txt"
    check "root has the log" test "$(stat -c %U /var/log/voltis/voltis.log)" = root
    check "anna prints after it" ends_with 0 as anna voltis first-receipt.txt
    check "in the same log" test "$(grep -c started /var/log/voltis/voltis.log)" -eq 2
    check "root has a job, and so makes the journal" ends_with 0 bash -c "umask 077; cd /home/anna && voltisctl run --job 3 first-receipt.txt"
    check "anna has one after it" ends_with 0 as anna voltisctl run --job 4 first-receipt.txt
    check "nine receipts are on the tape" receipts_are 9
}

# umask_of USER UMASK COMMAND...: as that user, with that umask.
umask_of() {
    local user=$1 mask=$2
    shift 2
    # shellcheck disable=SC2016  # the inner shell expands it
    as "$user" sh -c 'umask "$0"; exec "$@"' "$mask" "$@"
}

says() {
    grep -qF -- "$1" "$work/said"
}

# A disk that knows no access lists.
mount_without_access_lists() {
    mount -t ramfs ramfs "$1"
    chown root:dialout "$1"
    chmod "$2" "$1"
}

# Job 3: anna's run is killed before its first command is done.
killed_while_sending() {
    local starter status=0
    echo 'at data 1 late 3s' >&7
    umask_of anna 077 voltisctl run --job 3 first-receipt.txt >"$work/said" 2>&1 </dev/null &
    starter=$!
    sleep 1.5
    kill -KILL "$(tr -d ' \n' </run/lock/LCK..ttyS0)" || return 1
    wait "$starter" || status=$?
    if [ "$status" -eq 137 ]; then return; fi  # 128 and SIGKILL
    echo "exit status $status, and:"
    cat "$work/said"
    return 1
}

two_users_without_access_lists() {
    step "two users without access lists"
    local printed closed
    printed=$(receipts)
    mount_without_access_lists /var/lib/voltis 2770
    mount_without_access_lists /var/log/voltis 2775
    check "anna prints a job with an umask of 077" ends_with 0 umask_of anna 077 voltisctl run --job 1 first-receipt.txt
    check "it is not printed again by bert" ends_with 0 umask_of bert 022 voltisctl run --job 1 first-receipt.txt
    check "who has no other journal" test ! -e /home/bert/.local/state/voltis
    check "and is told of none" not says "this account"
    check "the journal is the group's" test "$(stat -c '%U:%G %a' /var/lib/voltis/journal.db)" = "anna:dialout 660"
    check "a job of bert's is printed" ends_with 0 umask_of bert 022 voltisctl run --job 2 first-receipt.txt
    check "and not again by anna" ends_with 0 umask_of anna 077 voltisctl run --job 2 first-receipt.txt
    check "two receipts are new" receipts_are $((printed + 2))
    check "a run of anna's is killed" killed_while_sending
    check "anna sees all jobs" ends_with 0 umask_of anna 077 voltisctl jobs
    check "hers is in the middle of its printing" grep -qE ' 3 +sending ' "$work/said"
    sleep 2.5  # until the register has answered
    check "bert takes up what it has left" ends_with 0 umask_of bert 022 voltisctl run --wait 10 --job 3 first-receipt.txt
    check "and prints it once" receipts_are $((printed + 3))
    closed=$(find /var/lib/voltis -mindepth 1 \( ! -group dialout -o ! -perm -g=rw -o -perm /o=rwx \))
    check "all there is the group's, and nobody else's (but: ${closed:-none})" test -z "$closed"
    check "bert may remove what anna's run has left" as bert rm -r /var/lib/voltis/runs/1
    check "the doctor has nothing to say, of a disk without a size either" ends_with 0 as bert voltisctl doctor
    check "in all" says '0 errors, 0 warnings'
    logs_without_access_lists
    a_journal_that_is_closed
    umount -l /var/lib/voltis
    umount -l /var/log/voltis
}

logs_without_access_lists() {
    local printed
    check "a log that voltisctl has made is for both" ends_with 0 umask_of bert 022 voltis first-receipt.txt
    rm /var/log/voltis/*
    check "anna's driver makes a log" ends_with 0 umask_of anna 022 voltis first-receipt.txt
    printed=$(receipts)
    check "which bars bert's driver, as the page says" ends_with 2 umask_of bert 022 voltis first-receipt.txt
    check "but not voltisctl" ends_with 0 umask_of bert 022 voltisctl run --job 4 first-receipt.txt
    check "one receipt is new" receipts_are $((printed + 1))
}

# As an earlier version made it, and then as root has copied it back.
a_journal_that_is_closed() {
    local printed remedy
    printed=$(receipts)
    chmod 644 /var/lib/voltis/journal.db*
    check "bert is refused" ends_with 2 as bert voltisctl run --job 5 first-receipt.txt
    # shellcheck disable=SC2016  # backquotes of the message
    check "with the remedy" says 'as root, `chgrp -R dialout /var/lib/voltis` and `chmod -R g+rwX /var/lib/voltis`'
    check "without an ID, too" ends_with 2 as bert voltisctl run first-receipt.txt
    check "of anna's job he is not told that it was not printed" ends_with 101 as bert voltisctl run --job 1 first-receipt.txt
    check "he is shown no other jobs" ends_with 2 as bert voltisctl jobs
    check "and decides none" ends_with 2 as bert voltisctl resolve 1 --as printed --note seen
    check "the doctor finds it" ends_with 1 as bert voltisctl doctor
    check "by its name" says '[journal-rights]'
    mount -o remount,bind,ro /var/lib/voltis
    check "nor is a read-only disk a reason for another journal" ends_with 2 as anna voltisctl run --job 5 first-receipt.txt
    check "which is told" says 'Read-only file system'
    mount -o remount,bind,rw /var/lib/voltis
    check "nothing was printed" receipts_are "$printed"
    chown -R root:root /var/lib/voltis/*
    chmod 640 /var/lib/voltis/journal.db*
    check "root's journal tells nobody of a job: neither anna" ends_with 101 as anna voltisctl run --job 5 first-receipt.txt
    check "nor bert" ends_with 101 as bert voltisctl run --job 5 first-receipt.txt
    check "and he is refused without an ID, too" ends_with 2 as bert voltisctl run first-receipt.txt
    # shellcheck disable=SC2016  # backquotes of the message
    check "with the remedy" says 'as root, `chgrp -R dialout /var/lib/voltis` and `chmod -R g+rwX /var/lib/voltis`'
    check "nothing was printed" receipts_are "$printed"
    remedy=$(commands_of "$pages/docs/setup.md" "### Several accounts" 1)
    check "the page's remedy can be typed" types_as root /root "$remedy"
    check "the remedy helps" ends_with 0 as bert voltisctl run --job 5 first-receipt.txt
    check "and he knows anna's job" ends_with 0 as bert voltisctl run --job 1 first-receipt.txt
    check "one receipt is new" receipts_are $((printed + 1))
}

an_account_without_rights() {
    step "an account without rights"
    local printed
    printed=$(receipts)
    check "it cannot print" ends_with 2 as guest voltisctl run --json first-receipt.txt
    check "and is told of a journal of its own" says "this account may not use the machine's journal in '/var/lib/voltis'"
    as guest voltisctl jobs --json >"$work/jobs" 2>"$work/said"
    check "its jobs are told from the machine's" says "it has one of its own, '/home/guest/.local/state/voltis/journal.db'"
    check "beside the JSON" grep -q '"verdict": "not-printed"' "$work/jobs"
    check "a job of a journal of one's own" ends_with 0 as bert voltisctl run --journal .local/state/voltis/journal.db --job 9 first-receipt.txt
    check "is known when the account has got rights" ends_with 0 as bert voltisctl run --job 9 first-receipt.txt
    check "and not printed again" receipts_are $((printed + 1))
    as bert rm -r .local/state/voltis
}

# slow_run CONFIGURATION: a sale with the logs rotated in its middle.
slow_run() {
    local before
    before=$(receipts)
    echo 'at data 2 late 3s' >&7
    as anna voltis first-receipt.txt >"$work/said" 2>&1 </dev/null &
    local run=$!
    sleep 1.5
    check "a run is at work" kill -0 "$run"
    check "logrotate ends with 0" logrotate --force --state "$work/rotated" "$1"
    local status=0
    wait "$run" || status=$?
    check "the run ends with 0" test "$status" -eq 0
    check "its receipt is on the tape" receipts_are $((before + 1))
}

has_no_zero_byte() {
    [ "$(tr -dc '\0' <"$1" | wc -c)" -eq 0 ]
}

# A debug log of level 1 keeps a run that fails, with its command file, and cuts off one that does not.
logs_rotated_in_a_run() {
    step "logs rotated in a run"
    set_key DbgErrorLog 1
    { seq -f '# line %g of a long file' 400; echo 'SALE: DEPTNR=1'; } >/home/anna/wrong.txt
    check "a run fails" ends_with 1 as anna voltis wrong.txt
    local began
    began=$(grep -c started /var/log/voltis/voltis.log)
    slow_run /etc/logrotate.d/voltis
    check "the run is in the old log" test "$(grep -c started /var/log/voltis/voltis.log.1)" -eq $((began + 1))
    check "which is whole" has_no_zero_byte /var/log/voltis/voltis.log.1
    check "and so is the old debug log" has_no_zero_byte /var/log/voltis/dbgerror.log.1
    check "which has the failure still" grep -q 'wrong.txt' /var/log/voltis/dbgerror.log.1
    check "the next run makes a new log" ends_with 0 as bert voltis first-receipt.txt
    check "with nothing but itself" test "$(grep -c started /var/log/voltis/voltis.log)" -eq 1
    check "which anna may write as well" ends_with 0 as anna voltis first-receipt.txt

    check "a run fails again" ends_with 1 as anna voltis wrong.txt
    sed 's/nocreate/copytruncate/' /etc/logrotate.d/voltis >"$work/copytruncate"
    slow_run "$work/copytruncate"
    check "with copytruncate, the debug log is filled with zero bytes" not has_no_zero_byte /var/log/voltis/dbgerror.log
    rm /var/log/voltis/*
    set_key DbgErrorLog 0
}

the_doctor_finds_nothing() {
    step "voltisctl doctor"
    set_key ResultFileName result.txt
    check "anna's machine is well" ends_with 0 as anna voltisctl doctor --ask
    cat "$work/said"
    check "the guest's is not" ends_with 1 as guest voltisctl doctor
}

# A page's list has its commands a little further in.
connecting_block() {
    commands_of "$pages/docs/setup.md" "## Connecting a register" "$1" | sed 's/^ *//'
}

connecting_as_the_page_says() {
    step "connecting a register, as docs/setup.md says"
    local keys line typed shown
    keys=$(connecting_block 1)
    check "the page sets three keys" test "$(grep -cE '^[A-Za-z]+=[^=]+$' <<<"$keys")" -eq 3 -a "$(wc -l <<<"$keys")" -eq 3
    while read -r line; do
        set_key "${line%%=*}" "${line#*=}"
        check "the configuration has $line" grep -qx "$line" /etc/voltis/voltis.ini
    done <<<"$keys"
    typed=$(connecting_block 2)
    check "the lines of the page end with 0" types_as pos /home/pos "$typed"
    cat "$work/said"
    check "the driver and the register understand each other" grep -qx 'exit code 0' "$work/said"
    check "as the result file says" grep -q '^Message=OK' "$work/said"
    shown=$(connecting_block 3)
    typed=$(sed -n 's/^\$ //p' <<<"$shown")
    check "the page asks by a command" test -n "$typed"
    check "voltisctl status says so, too" ends_with 0 as pos bash -c "$typed"
    check "in the words of the page" diff <(sed '/^\$/d; s/[0-9]*$//' <<<"$shown") <(sed 's/[0-9]*$//' "$work/said")
    set_key DbgErrorLog 0
}

what_is_installed() {
    step "what is installed"
    local files=$work/files
    dpkg-query -L voltis | sort >"$files"
    check "nothing may be written by others, or runs with other rights" \
        test -z "$(xargs -a "$files" -d '\n' -I{} find {} -maxdepth 0 -not -type l -perm /6002)"
    local program
    apt_quiet install binutils
    for program in voltis voltisctl; do
        check "$program is hardened" "$here/../outside/hardening.sh" "/usr/bin/$program"
        check "$program says its version" ends_with 0 "/usr/bin/$program" "$([ $program = voltis ] && echo '/?' || echo --version)"
    done
    check "the logs' folder belongs to the group" test "$(stat -c '%U:%G %a' /var/log/voltis)" = "root:dialout 2775"
    check "the journal's folder, too" test "$(stat -c '%U:%G %a' /var/lib/voltis)" = "root:dialout 2770"
}

# The names of the system calls of a trace, those of all processes.
names_of_calls() {
    sed -nE 's/^([0-9]+ +)?([a-z_0-9]+)\(.*/\2/p' "$1" | sort -u
}

# named_calls PROGRAM...: what the page lists for these.
named_calls() {
    local program
    for program in "$@"; do
        # shellcheck disable=SC2016  # backquotes as they are on the page
        sed -n "/^<!-- system calls of $program -->/,/^\$/p" /usr/share/doc/voltis/SECURITY.md | grep -oE '`[a-z_0-9]+`'
    done | tr -d '`' | sort -u
}

# calls_are_named TRACE PROGRAM...: what strace saw is on the page.
calls_are_named() {
    local trace=$1 unnamed
    shift
    unnamed=$(comm -23 <(names_of_calls "$trace") <(named_calls "$@"))
    if [ -z "$unnamed" ] && [ -s "$trace" ]; then return 0; fi
    echo "not named in SECURITY.md: $unnamed"
    return 1
}

system_calls() {
    step "system calls"
    apt_quiet install strace
    chmod 777 "$work"
    as anna strace -o "$work/voltis.trace" voltis first-receipt.txt
    check "the driver's are those of the page" calls_are_named "$work/voltis.trace" voltis
    as anna strace -f -o "$work/voltisctl.trace" voltisctl run --job 5 first-receipt.txt
    check "those of voltisctl, bubblewrap and the driver as well" calls_are_named "$work/voltisctl.trace" voltis voltisctl
    chmod 755 "$work"
}

# another_version NUMBER [LINE]: the package with another number, and a line more in its configuration.
another_version() {
    local root=$work/root-$1
    dpkg-deb -R "$package" "$root"
    sed -i "s/^Version: .*/Version: $1/" "$root/DEBIAN/control"
    if [ $# -gt 1 ]; then echo "$2" >>"$root/etc/voltis/voltis.ini"; fi
    (cd "$root" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | sort -z | xargs -0 md5sum) >"$work/md5sums"
    mv "$work/md5sums" "$root/DEBIAN/md5sums"
    dpkg-deb --root-owner-group -b "$root" "$work/voltis_$1.deb" >/dev/null
    rm -r "$root"
}

an_upgrade_over_an_edited_configuration() {
    step "upgrades"
    local printed
    printed=$(receipts)
    set_key CashierNumber 7
    another_version 99.1
    another_version 99.2 "# New in this version."
    # In the middle of a sale, of which five answers are slow.
    local frame
    for frame in 2 3 4 5 6; do
        echo "at data $frame late 3s" >&7
    done
    as anna voltisctl run --job 6 first-receipt.txt >"$work/said" 2>&1 </dev/null &
    local run=$!
    sleep 0.5
    check "a sale is at work" kill -0 "$run"
    check "an upgrade asks nothing where only the shop has edited" apt_quiet install "$work/voltis_99.1.deb"
    check "the sale is at work still" kill -0 "$run"
    local status=0
    wait "$run" || status=$?
    check "the sale that was at work ends with 0" test "$status" -eq 0
    check "and is printed" receipts_are $((printed + 1))
    check "the edited configuration stays" grep -q '^CashierNumber=7' /etc/voltis/voltis.ini
    check "where both have, the shop's stays when it says so" \
        apt_quiet -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold install "$work/voltis_99.2.deb"
    check "it is there" grep -q '^CashierNumber=7' /etc/voltis/voltis.ini
    check "and the package's is beside it" grep -q 'New in this version' /etc/voltis/voltis.ini.dpkg-dist
    check "a sale is printed" ends_with 0 as bert voltisctl run --job 7 first-receipt.txt
    check "the jobs of before are known" ends_with 0 as bert voltisctl run --job 6 first-receipt.txt
    check "and not printed again" receipts_are $((printed + 2))
}

a_downgrade() {
    step "a downgrade"
    local printed
    printed=$(receipts)
    check "apt goes back" apt_quiet -o Dpkg::Options::=--force-confold --allow-downgrades install "$package"
    check "a sale is printed" ends_with 0 as anna voltisctl run --job 8 first-receipt.txt
    check "the jobs of before are known" ends_with 0 as anna voltisctl run --job 7 first-receipt.txt
    check "one receipt is new" receipts_are $((printed + 1))
    check "the edited configuration stays" grep -q '^CashierNumber=7' /etc/voltis/voltis.ini
}

# posts USER STATUS KEY [OPTION...]: the sale by HTTP, waiting for its result.
posts() {
    local user=$1 expected=$2 key=$3 status
    shift 3
    status=$(as "$user" curl --silent --max-time 60 --output /dev/null --write-out '%{http_code}' \
        --header "Idempotency-Key: $key" --header "Prefer: wait=30" --header "Content-Type: text/plain" \
        --data-binary @first-receipt.txt --request-target /v1/registers/default/jobs "$@" || true)
    if [ "$status" = "$expected" ]; then return; fi
    echo "status $status instead of $expected, and the service says:"
    cat "$work/service"
    return 1
}

by_socket() {
    posts "$1" "$2" "$3" --unix-socket /run/voltisd/voltisd.sock http://localhost
}

by_network() {
    local token=${4:-}
    posts "$1" "$2" "$3" ${token:+--header "Authorization: Bearer $token"} \
        http://127.0.0.1:8631
}

service_answers() {
    local pause
    for pause in $(seq 100); do
        if curl --silent --fail http://127.0.0.1:8631/healthz >"$work/said"; then return; fi
        sleep 0.1
    done
    echo "no service after $pause pauses"
    cat "$work/service"
    return 1
}

# Without systemd, by hand; with it, booted.sh has the same.
the_service() {
    step "the service"
    local printed token
    printed=$(receipts)
    apt_quiet install curl
    check "apt installs it" apt_quiet install "$service"
    check "its account is of the group" grep -qw dialout <<<"$(id -nG voltis)"
    check "which cannot log in" grep -q '/nologin$' <<<"$(getent passwd voltis)"
    check "the folder of its socket is its own" test "$(stat -c '%U:%G %a' /run/voltisd)" = "voltis:voltis 755"
    check "it is hardened" "$here/../outside/hardening.sh" /usr/sbin/voltisd
    check "it says its version" ends_with 0 voltisd --version
    check "it takes the installed configuration" ends_with 0 voltisd --check
    check "a token is made" ends_with 0 voltisctl token add till --scope print,read
    token=$(grep -oE 'vt_[^ ]+' "$work/said")
    check "for the group to read" test "$(stat -c '%G %a' /etc/voltis/tokens)" = "dialout 640"
    setpriv --reuid voltis --regid voltis --init-groups voltisd >"$work/service" 2>&1 </dev/null &
    voltisd=$!
    check "it answers" service_answers
    check "anna's job by the socket is printed" by_socket anna 200 web-1
    check "bert's voltisctl run knows it" ends_with 0 as bert voltisctl run --job web-1 first-receipt.txt
    check "one receipt is new" receipts_are $((printed + 1))
    check "somebody outside the group is not let to the socket" by_socket guest 000 web-2
    check "but to the network with a token" by_network guest 200 web-2 "$token"
    check "and not without" by_network anna 401 web-3
    check "a job of voltisctl run is known to the service" by_socket bert 200 8
    check "one more receipt is new" receipts_are $((printed + 2))
    check "the journal is the group's" test -z "$(find /var/lib/voltis \( ! -group dialout -o -perm /o=rwx \))"
    kill "$voltisd"
    local status=0
    wait "$voltisd" || status=$?
    voltisd=
    check "it ends with 0" test "$status" -eq 0
}

the_service_goes() {
    step "removal and purge of the service"
    check "apt removes it" apt_quiet remove voltisd
    check "the program and the units are gone" \
        test -z "$(find /usr/sbin/voltisd /usr/lib/systemd/system/voltisd.* 2>/dev/null)"
    check "the configuration and the tokens stay" test -s /etc/voltis/voltisd.conf -a -s /etc/voltis/tokens
    check "apt purges it" apt_quiet purge voltisd
    check "they are gone" test ! -e /etc/voltis/voltisd.conf -a ! -e /etc/voltis/tokens
    check "the configuration of the registers stays" test -s /etc/voltis/voltis.ini
    check "the jobs of before are known" ends_with 0 as anna voltisctl run --job web-2 first-receipt.txt
}

removal_keeps_what_the_shop_needs() {
    step "removal"
    local printed
    printed=$(receipts)
    printf '[VOLTIS]\nDevice=/dev/ttyS7\n' >/etc/voltis/registers/bar.ini
    check "apt removes the package" apt_quiet remove voltis
    check "the programs are gone" test ! -e /usr/bin/voltis -a ! -e /usr/bin/voltisctl
    check "the configuration stays" grep -q '^CashierNumber=7' /etc/voltis/voltis.ini
    check "that of another register, too" grep -q '^Device=/dev/ttyS7' /etc/voltis/registers/bar.ini
    check "and that of logrotate" test -s /etc/logrotate.d/voltis
    check "the log stays" test -s /var/log/voltis/voltis.log
    check "the journal stays" test -s /var/lib/voltis/journal.db
    check "apt installs it again" apt_quiet install "$package"
    check "the jobs of before are known" ends_with 0 as anna voltisctl run --job 8 first-receipt.txt
    check "nothing is printed" receipts_are "$printed"
}

purge_asks_nothing() {
    step "purge"
    check "apt purges the package" apt_quiet purge voltis
    check "the configuration is gone, with that of another register" test ! -e /etc/voltis
    check "and that of logrotate" test ! -e /etc/logrotate.d/voltis
    check "the logs are gone" test ! -e /var/log/voltis
    check "dpkg knows nothing of it" not dpkg-query -W voltis
    check "the journal, which knows what was printed, stays" test -s /var/lib/voltis/journal.db
}

# Where the administrator has let the logs go elsewhere, other programs' may be there as well.
purge_leaves_what_is_behind_a_link() {
    step "purge, with a link in the place of the logs"
    check "apt installs the package again" apt_quiet install "$package"
    mkdir "$work/logs"
    rmdir /var/log/voltis
    ln -s "$work/logs" /var/log/voltis
    touch "$work/logs/voltis.log" "$work/logs/dbgerror.log.2.gz" "$work/logs/another.log"
    check "apt purges it" apt_quiet purge voltis
    check "the logs are gone, and nothing else" test "$(ls "$work/logs")" = another.log
    check "the link stays" test -L /var/log/voltis
}
