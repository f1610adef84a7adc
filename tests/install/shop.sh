#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# shop.sh FOLDER: the packages in this folder in the life of a shop, from `apt install` to purge. It
# changes the system that it runs on, so it runs as root in a bare Debian root of its own (scripts/bare),
# and refuses to run where voltis is already installed.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
package=$(realpath "$1"/voltis_*.deb)
service=$(realpath "$1"/voltisd_*.deb)
pages=$(realpath "$here/../..")
examples=/usr/share/doc/voltis/examples
export DEBIAN_FRONTEND=noninteractive

if [ "$(id -u)" -ne 0 ] || [ -e /etc/voltis ] || dpkg-query -W voltis >/dev/null 2>&1; then
    echo "shop.sh: only as root in a bare root of its own" >&2
    exit 2
fi
work=$(mktemp -d)
chmod 755 "$work"
register=
voltisd=
trap '[ -z "$voltisd" ] || kill "$voltisd"; [ -z "$register" ] || kill "$register"' EXIT

# shellcheck source=tests/install/page.sh
. "$here/page.sh"
# shellcheck source=tests/install/steps.sh
. "$here/steps.sh"

install_package
a_first_receipt
the_driver_alone
a_job_is_printed_once
a_second_user
a_log_first_written_by_root
two_users_without_access_lists
an_account_without_rights
logs_rotated_in_a_run
the_doctor_finds_nothing
connecting_as_the_page_says
what_is_installed
system_calls
an_upgrade_over_an_edited_configuration
a_downgrade
the_service
the_service_goes
removal_keeps_what_the_shop_needs
purge_asks_nothing
purge_leaves_what_is_behind_a_link
echo "the package in a shop: $checks checks, all passed"
