#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# sbom.sh NAME VERSION DATE COMPILER: writes, as an SPDX 2.3 document, what of other projects is in the
# programs themselves: linked statically, or compiled in from headers. The versions are those of the
# installed Debian packages, NOASSERTION where there are none. DATE is in seconds; SOURCE_DATE_EPOCH
# overrides it. The same packages make the same bytes.
set -euo pipefail

name=$1 version=$2 compiler=$4
created=$(date --utc --date="@${SOURCE_DATE_EPOCH:-$3}" +%Y-%m-%dT%H:%M:%SZ)

# source_version PACKAGE
source_version() {
    dpkg-query -W -f '${source:Version}' "$1" 2>/dev/null || printf NOASSERTION
}

# package_of FILE: the package of a file that the compiler links.
package_of() {
    local file
    file=$(realpath "$("$compiler" -print-file-name="$1")")
    { dpkg-query -S "$file" 2>/dev/null || echo "$1"; } | sed 's/:.*//'
}

packages='' relations=''
# component NAME PACKAGE LICENCE RELATION
component() {
    local found
    found=$(source_version "$2")
    local supplier="Organization: Debian"
    if [ "$found" = NOASSERTION ]; then supplier=NOASSERTION; fi
    packages+=",
    {\"name\": \"$1\", \"SPDXID\": \"SPDXRef-$1\", \"versionInfo\": \"$found\", \"downloadLocation\": \"NOASSERTION\",
     \"filesAnalyzed\": false, \"licenseConcluded\": \"$3\", \"licenseDeclared\": \"$3\", \"copyrightText\": \"NOASSERTION\",
     \"supplier\": \"$supplier\", \"comment\": \"of the package $2\"}"
    relations+=",
    {\"spdxElementId\": \"SPDXRef-$name\", \"relationshipType\": \"$4\", \"relatedSpdxElement\": \"SPDXRef-$1\"}"
}

component barcode barcode GPL-3.0-or-later STATIC_LINK
component libstdcxx "$(package_of libstdc++.a)" "GPL-3.0-or-later WITH GCC-exception-3.1" STATIC_LINK
component libgcc "$(package_of libgcc.a)" "GPL-3.0-or-later WITH GCC-exception-3.1" STATIC_LINK
# What the C library has in every program: the code that calls main().
component libc-start "$(package_of Scrt1.o)" LGPL-2.1-or-later STATIC_LINK
component cli11 libcli11-dev BSD-3-Clause CONTAINS
component nlohmann-json nlohmann-json3-dev MIT CONTAINS

# Another document for other versions of the components.
contents=$(sha256sum <<<"$packages" | cut -c 1-16)

cat <<JSON
{
  "spdxVersion": "SPDX-2.3",
  "dataLicense": "CC0-1.0",
  "SPDXID": "SPDXRef-DOCUMENT",
  "name": "$name-$version",
  "documentNamespace": "https://voltis.example/spdx/$name-$version-$contents",
  "creationInfo": {"created": "$created", "creators": ["Organization: VOLTIS developers"]},
  "packages": [
    {"name": "$name", "SPDXID": "SPDXRef-$name", "versionInfo": "$version", "downloadLocation": "NOASSERTION",
     "filesAnalyzed": false, "licenseConcluded": "GPL-3.0-or-later", "licenseDeclared": "GPL-3.0-or-later",
     "copyrightText": "VOLTIS developers"}$packages
  ],
  "relationships": [
    {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES", "relatedSpdxElement": "SPDXRef-$name"}$relations
  ]
}
JSON
