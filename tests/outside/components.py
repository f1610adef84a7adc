#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""components.py BUILD: the list of components (voltis.spdx.json) is a valid SPDX 2.3 document, and true.

What is in the programs is read from the linker's map, from the headers that ninja has noted for each object,
and from the programs themselves; whose it is, in which version and under which licence, from dpkg.
"""

import datetime
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

BUILD = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else ".").resolve()
PROGRAMS = ("voltis", "voltisctl", "voltisd")
# What a copyright file of Debian says of these.
LICENCES = {
    "BSD-3-Clause": "BSD-3-clause",
    "GPL-3.0-or-later": r"\bGPL-3\+|\bGPL-3\.0-or-later|GNU General Public License \(v3 or later\)",
    "GPL-3.0-or-later WITH GCC-exception-3.1": r"\(v3 or later\) with version 3\.1 of the GCC Runtime Library Exception",
    "LGPL-2.1-or-later": r"LGPL-2\.1\+|LGPL-2\.1-or-later|version 2\.1 of the License, or \(at your option\) any later version",
    "MIT": r"\b(Expat|MIT)\b",
}
# Constants of the kernel; nothing of it is compiled.
NO_CODE = {"linux-libc-dev"}


def run(*command):
    return subprocess.run(command, cwd=BUILD, check=True, capture_output=True, text=True).stdout


def packages_of(files):
    """The packages that these files are of; each file is of one."""
    real = {str(pathlib.Path(file).resolve()) for file in files}
    # A package may have a file under the name that it had before /lib became a link.
    names = sorted(real | {file.removeprefix("/usr") for file in real})
    asked = subprocess.run(["dpkg-query", "-S", *names], capture_output=True, text=True).stdout
    owners = {line.split(" ")[-1]: line.split(":")[0] for line in asked.splitlines()}
    return {owners.get(file) or owners[file.removeprefix("/usr")] for file in real}


def of_dpkg(field, package):
    return run("dpkg-query", "-W", "-f", "${%s}\n" % field, package).splitlines()[0]


def sources(packages):
    return {of_dpkg("source:Package", package) for package in packages}


def linked_statically(program):
    """Objects, and members of archives, of others: from the map of the program linked once more."""
    command = run("ninja", "-t", "commands", program).splitlines()[-1].removeprefix(": && ").removesuffix(" && :")
    with tempfile.TemporaryDirectory() as folder:
        again = command.replace(f" -o {program} ", f" -o {folder}/again ") + f" -Wl,-Map={folder}/map"
        assert again.count(folder) == 2, command
        subprocess.run(again, shell=True, cwd=BUILD, check=True)
        text = pathlib.Path(folder, "map").read_text()
    archives = text[: text.index("Memory Configuration")]
    return set(re.findall(r"^(/\S+\.a)\(", archives, re.M)) | set(re.findall(r"^LOAD (/\S+\.o)$", text, re.M))


def linked_dynamically(program):
    return set(re.findall(r"(/\S+) \(0x", run("ldd", program)))


def headers(program):
    """Those of others that the objects of a program were compiled with."""
    objects = [path for path in run("ninja", "-t", "inputs", program).split() if path.endswith(".o")]
    assert objects, program
    return set(re.findall(r"^ +(/usr/\S+)$", run("ninja", "-t", "deps", *objects), re.M))


def in_the_programs():
    """The packages that have a part in the programs: linked in, or of headers that no shared library belongs to."""
    static, shared, compiled = set(), set(), set()
    for program in PROGRAMS:
        static |= linked_statically(program)
        shared |= linked_dynamically(program)
        compiled |= headers(program)
    static = packages_of(static)
    elsewhere = sources(packages_of(shared)) | sources(static)
    compiled = {p for p in packages_of(compiled) - NO_CODE if of_dpkg("source:Package", p) not in elsewhere}
    return static, compiled


def components(document):
    """Each component's package of Debian, with its entry."""
    named = (package for package in document["packages"] if "comment" in package)
    return {re.fullmatch("of the package (.+)", package["comment"])[1]: package for package in named}


def related(document, kind):
    """The packages of Debian that the document names in this relation to the programs."""
    ids = {r["relatedSpdxElement"] for r in document["relationships"] if r["relationshipType"] == kind}
    return {name for name, package in components(document).items() if package["SPDXID"] in ids}


def invalid(document):
    """What clauses 6, 7 and 11 of SPDX 2.3 ask for and the document has not."""
    wrong = []

    def must(holds, what):
        if not holds:
            wrong.append(what)

    must(document.get("spdxVersion") == "SPDX-2.3", "spdxVersion")
    must(document.get("dataLicense") == "CC0-1.0", "dataLicense")
    must(document.get("SPDXID") == "SPDXRef-DOCUMENT", "SPDXID")
    must(document.get("name"), "name")
    must(re.fullmatch(r"https://[^#\s]+", document.get("documentNamespace", "")), "documentNamespace")
    creation = document.get("creationInfo", {})
    try:
        datetime.datetime.strptime(creation.get("created", ""), "%Y-%m-%dT%H:%M:%SZ")
    except ValueError:
        wrong.append("created")
    creators = creation.get("creators", [])
    must(creators and all(re.match("(Person|Organization|Tool): .", c) for c in creators), "creators")
    ids = ["SPDXRef-DOCUMENT"]
    for package in document.get("packages", []):
        ids.append(package.get("SPDXID", ""))
        must(package.get("name"), "a package's name")
        must(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", ids[-1]), f"SPDXID {ids[-1]}")
        must(package.get("downloadLocation"), f"downloadLocation of {ids[-1]}")
        must(package.get("filesAnalyzed") is False and "packageVerificationCode" not in package, f"files of {ids[-1]}")
        supplier = package.get("supplier", "NOASSERTION")
        must(re.fullmatch("NOASSERTION|(Person|Organization): .+", supplier), f"supplier of {ids[-1]}")
        for field in ("licenseConcluded", "licenseDeclared"):
            must(package.get(field) in LICENCES, f"{field} of {ids[-1]}")
        must(package.get("copyrightText"), f"copyrightText of {ids[-1]}")
    must(len(set(ids)) == len(ids), "each SPDXID once")
    kinds = {"DESCRIBES", "STATIC_LINK", "CONTAINS"}
    for relation in document.get("relationships", []):
        must(relation.get("relationshipType") in kinds, "relationshipType")
        for end in ("spdxElementId", "relatedSpdxElement"):
            must(relation.get(end) in ids, f"{end} {relation.get(end)}")
    described = [r for r in document.get("relationships", []) if r.get("relationshipType") == "DESCRIBES"]
    must([r.get("spdxElementId") for r in described] == ["SPDXRef-DOCUMENT"], "what the document describes")
    return wrong


class Components(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.text = (BUILD / "voltis.spdx.json").read_text()
        cls.document = json.loads(cls.text)

    def test_the_document_is_valid(self):
        self.assertEqual(invalid(self.document), [])

    def test_a_document_without_a_field_is_not(self):
        for field in ("spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo"):
            less = {key: value for key, value in self.document.items() if key != field}
            self.assertNotEqual(invalid(less), [], field)
        for field in ("name", "SPDXID", "downloadLocation", "licenseDeclared", "copyrightText", "filesAnalyzed"):
            less = json.loads(self.text)
            del less["packages"][1][field]
            self.assertNotEqual(invalid(less), [], field)
        less = json.loads(self.text)
        del less["packages"][-1]
        self.assertNotEqual(invalid(less), [], "a relation to nothing")

    def test_it_names_all_that_is_in_the_programs_and_nothing_else(self):
        static, compiled = in_the_programs()
        self.assertEqual(related(self.document, "STATIC_LINK"), static)
        self.assertEqual(related(self.document, "CONTAINS"), compiled)
        self.assertEqual(static | compiled, set(components(self.document)))
        self.assertLessEqual({"barcode", "libcli11-dev", "nlohmann-json3-dev"}, static | compiled)

    def test_versions_are_those_of_dpkg(self):
        for package, entry in components(self.document).items():
            self.assertEqual(entry["versionInfo"], of_dpkg("source:Version", package), package)

    def test_licences_are_those_of_the_packages(self):
        for package, entry in components(self.document).items():
            text = pathlib.Path("/usr/share/doc", package, "copyright").read_text()
            # A file in Debian's format has one for all that has no other.
            general = re.search(r"^Files: \*\n(?:.+\n)*?License: (.+)$", text, re.M)
            said = general[1] if general else " ".join(text.split())
            with self.subTest(package):
                self.assertRegex(said, LICENCES[entry["licenseDeclared"]])


if __name__ == "__main__":
    unittest.main()
