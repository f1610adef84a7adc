// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What `voltisctl run` says when it sends nothing, beside the driver's own messages.
#include "DriverException.h"
#include "companion/explain/Answers.h"
#include "companion/explain/Codes.h"

namespace explain {

namespace {

constexpr Entry Reason(std::string_view text, std::string_view happened, std::string_view remedy) {
    return {Kind::RunMessage, ERR_SYSTEM, text, exit2, happened, &runNotBegun, remedy};
}

constexpr Entry RunMistake(std::string_view text, std::string_view happened,
                           std::string_view remedy) {
    return {Kind::RunMessage, ERR_COMMAND_FILE, text, exit1, happened, &fileRefused, remedy};
}

constexpr char correctIni[] = "Correct the file that is named; docs/reference.md has all keys.";
constexpr char giveAccess[] = "Give this account the right to it, or name another place.";
constexpr char theJournal[] =
    "Do what the message says. The journal holds what was printed: never delete it.";
constexpr char newId[] =
    "Use an ID of its own for every receipt, and the same bytes when a job is run again.";

constexpr Entry runMessageRows[] = {
    // The command file and the result file.
    {Kind::RunMessage, ERR_SYSTEM, "cannot read '{X}' - {...}", exit1 | exit2,
     "Exit code 1: the command file cannot be read. 2: another file cannot.", &runNotBegun,
     "Do what the reason after the dash asks for."},
    Reason("cannot write '{X}' - {...}", "A file of the run cannot be written.",
           "Do what the reason after the dash asks for; free some space."),
    RunMistake("line {N}, column {N}: this is not UTF-8",
               "--from utf-8 was given, and these bytes are no UTF-8.",
               "Write the file in UTF-8, or leave --from out."),
    RunMistake("line {N}, column {N}: code page {X} lacks this character",
               "--from utf-8 was given, and the register's code page has no such letter.",
               "Use another letter, or another CodePage."),
    RunMistake("CodePage={X}: there is RIM, DOS and TILDE", "The configuration names no code page.",
               correctIni),
    Reason("'{X}' is no command file", "The name of a folder was given.", "Name a file."),
    Reason("the driver would take '{X}' for an option; write '{X}'",
           "A name that begins with - or / looks like an option of the driver.",
           "Write it as the message says."),
    Reason("a command file in '{X}' cannot be run; copy it into a folder of its own",
           "The file is in a folder that programs need to start.", "Copy the file."),
    Reason("the old result file cannot be removed: '{X}' - {...}",
           "The result of an earlier run would be taken for that of this one.", giveAccess),
    Reason("no result file can be made in '{X}' - {...}",
           "The folder of the command file does not let this account write.", giveAccess),
    {Kind::RunMessage, noCode, "cannot write the result file '{X}' - {...}",
     exit0 | exit1 | exit2 | exit101,
     "The job has ended as the verdict and the exit code say; only the result file is missing.",
     &asTheRunSays, "Decide by the exit code; free some space."},
    // The register.
    Reason("the register is in use by {X} (lock file '{X}')",
           "Another run or program has the device.",
           "Wait for it, or give --wait more seconds. A program that is not ours must be ended."),
    Reason("lock file '{X}': {...}", "The lock file of the device cannot be made or opened.",
           giveAccess),
    Reason("the device '{X}' of register '{X}' cannot be found - {...}",
           "There is no such device: unplugged, or another name.",
           "Plug it in; compare Device= or ComNumber= with what is in /dev."),
    Reason("the device '{X}' of register '{X}' is not a character device",
           "Device= names a file that is no serial port.", correctIni),
    Reason("the device '{X}' of register '{X}' cannot be opened - {...}",
           "This account may not use the device.",
           "As root, add the account to the group of the device, dialout on Debian; then log in "
           "again."),
    Reason(
        "The register may hold the command number of an earlier run and could not be made to "
        "forget it; nothing was sent. Run the job again when the register answers",
        "An earlier run was cut off in such a way that the register could take this file's "
        "first command for a repetition.",
        "Switch the register on, finish a receipt that is open there, and clear what it complains "
        "of; then run the job again, under the same ID."),
    // The service that has the register, and its queue.
    Reason("this account may not use '{X}', where the service takes jobs for the register. As "
           "root, add it to the group {X}, and log it in again",
           "voltisd prints on this register, and takes jobs from the accounts of its group.",
           "Do as the message says."),
    Reason("other jobs are before this one on the register, and --wait was over; it has left the "
           "queue",
           "voltisd prints for several tills, and others were first.",
           "Run it again, under the same ID; give --wait more seconds."),
    Reason("the call was ended before the job was printed; it has left the queue",
           "SIGINT or SIGTERM came while other jobs were printed.",
           "Run it again, under the same ID."),
    Reason("the service has not begun to print the job for a long time; it has left the queue",
           "voltisd runs, but the process that prints on this register does not get on.",
           "Look what voltisd says (journalctl -u voltisd), then run it again."),
    {Kind::RunMessage, noCode,
     "the job was in the queue before this call, and is still there; it may be printed later",
     exit101,
     "Another call under the same ID has given voltisd the job. This one only joined it, and was "
     "interrupted or did not wait any longer.",
     &asTheRunSays,
     "Run it again under the same ID, to wait for the verdict: it is not printed twice. To take it "
     "out of the queue, send voltisd DELETE /v1/jobs/ID."},
    {Kind::RunMessage, noCode, "the job is still being printed; ask again under its ID", exit101,
     "SIGINT or SIGTERM came while voltisd printed the job, and a minute later it was not at its "
     "end.",
     &asTheRunSays,
     "Run it again under the same ID, to wait for the verdict: it is not printed twice. If that "
     "does not end, look what voltisd says (journalctl -u voltisd)."},
    Reason("the queue does not take the job", "A thousand jobs wait for the register.",
           "Look why nothing is printed there."),
    Reason("the service at '{X}' does not take the job - {...}",
           "voltisd has refused the job, or was too busy until the end of --wait.",
           "Do what the reason after the dash asks for; then run it again, under the same ID."),
    {Kind::RunMessage, noCode, "the service at '{X}' does not answer, and may still take the job",
     exit101, "voltisd has the job's request, but hangs. It may print the job later.",
     &asTheRunSays,
     "Look at voltisd, and at the paper. Run it again under the same ID: it is not printed twice."},
    {Kind::RunMessage, noCode, "the service at '{X}' keeps its jobs in another journal", exit101,
     "The journal of this call names a service that has another one by now, and has printed the "
     "job, perhaps.",
     &asTheRunSays, "Look at the paper; give --journal the journal of voltisd."},
    // The configuration.
    Reason("'{X}': there is no such file", "The register of that name has no configuration.",
           "Give the right --register, or write the file."),
    Reason("'{X}': it cannot be read - {...}", "The configuration cannot be read.", giveAccess),
    Reason("'{X}': it is no regular file", "The configuration is a folder or a device.",
           correctIni),
    Reason("'{X}': no memory for its text", "The machine has no memory left.", "Free some memory."),
    Reason("'{X}': the driver cannot read it: it contains a NUL byte",
           "The configuration is damaged, or in UTF-16.", "Write it anew, as plain text."),
    Reason("'{X}': it has no section [{X}]", "The configuration lacks its heading.",
           "Write [VOLTIS] above its keys."),
    Reason("'{X}' is no name of a register: it may have letters, digits, '-', '_' and '.', and "
           "begins with no '.'",
           "--register has letters that no name has.", "Give another name."),
    Reason("'{X}': {NAME}={X}: it is either yes or no", "A key has another value.", correctIni),
    Reason("'{X}': {NAME}={X}: it is a number of days", "A key has another value.", correctIni),
    Reason("'{X}': Sandbox= belongs into voltis.ini: it holds for the machine",
           "Another register's file has the key.", correctIni),
    Reason("'{X}': neither Device= nor ComNumber= says where the register is",
           "The configuration names no port.", correctIni),
    Reason("'{X}': Device={X}: it is a path that begins at /", "Device= is no such path.",
           correctIni),
    Reason("'{X}': Device= and Sandbox=no exclude each other: in place the driver opens the port "
           "of ComNumber=",
           "Both keys are there.", correctIni),
    Reason("'{X}': Device= is missing", "Every register but the default one needs the key.",
           correctIni),
    Reason("'{X}': the register of voltis.ini has this name; give it another one",
           "Two registers would have the name.", "Rename the file."),
    Reason("'{X}': Sandbox=no needs DbgErrorLog=2, because the conversation with the register is "
           "taken from that log",
           "Without the log nobody could tell what was printed.", correctIni),
    Reason("'{X}' is no habit of a register", "Habit= has a word that is none.", correctIni),
    // The driver and its private root.
    Reason("no driver at '{X}' - {...}; build it, or name another with --driver",
           "voltis is neither beside voltisctl nor on the path.", "Install it, or name it."),
    Reason("{X}: not found. voltisctl runs the driver in a sandbox made by bubblewrap; install it "
           "with `apt install bubblewrap`",
           "The program bwrap is missing.", "Install it."),
    Reason("{X} could not be started - {...}", "The program bwrap does not start.",
           "Do what the reason after the dash asks for."),
    Reason("This machine does not let an ordinary user make a sandbox ({X}).{...}",
           "The kernel forbids this account a private root.",
           "As root, allow it as the message says, or write Sandbox=no into voltis.ini."),
    Reason("The sandbox could not be made: {...}", "The program bwrap failed for another reason.",
           "Write Sandbox=no into voltis.ini when it cannot be remedied."),
    Reason("No pipe to the driver - {...}", "The machine has no descriptors left.",
           "End other programs, or raise the limit."),
    // The journal.
    Reason("cannot make '{X}' - {...}",
           "The journal of jobs, or the folder of a run beside it, cannot be made.",
           "Do as the message says. Do not name another journal for a register of a shop: it "
           "knows nothing of the jobs so far."),
    Reason("cannot use the journal '{X}' - {...}",
           "The journal cannot be read or written: its rights, a full disk, or another file in its "
           "place.",
           theJournal),
    {Kind::RunMessage, noCode, "this account may not use the machine's journal in '{X}' - {...}",
     exit0 | exit1 | exit2 | exit101,
     "The account has no rights in that folder, and keeps its jobs in a journal of its own. A job "
     "that another account has printed is not in it, and is printed again.",
     &asTheRunSays,
     "As root, add the account to the group of the folder, dialout, and log it in again. Where it "
     "is to have a journal of its own, name that with --journal."},
    Reason("the path of the journal is empty", "--journal has no value.", "Name a file."),
    Reason("the journal '{X}' has no job number {N}", "A job has vanished from the journal.",
           theJournal),
    Reason("the journal's record of the job is damaged: {...}",
           "What became of the job cannot be read.", "Look at the paper, then use a new ID."),
    Reason("'{X}' is no verdict", "The record of the job in the journal is damaged.",
           "Look at the paper, then use a new ID."),
    Reason("job {X} cannot be {X}: it is {X}",
           "Another call has taken up the job, or a person has decided, in the meantime.",
           "Run it again, under the same ID."),
    Reason("Job '{X}' has another content: it is the job of {X} from '{X}'",
           "This ID was used before, for another file.", newId),
    Reason("job '{X}' is in the journal with another content, received {X} from '{X}'; a new job "
           "needs a new ID",
           "This ID was used before, for another file.", newId),
    Reason("The run was cut off before it began",
           "The program was ended after it had noted the job and before it sent anything.",
           "Run it again, under the same ID."),
    Reason("The job was withdrawn by '{X}' before it was printed",
           "Somebody took the job out of the queue of its register. It stays so.", newId),
    // In the place of the driver's own message.
    {Kind::RunMessage, noCode, "Nothing was printed", exit2,
     "The driver ended in another way, and the register has acted on nothing.", &runNotBegun,
     "Run it again, under the same ID."},
    {Kind::RunMessage, noCode, "The driver was ended by signal {N}", exit0 | exit2 | exit101,
     "The driver was killed; the verdict says what was printed.", &asTheRunSays,
     "Do not kill the driver: every run ends by itself."},
    {Kind::RunMessage, noCode, "The run was cut off", exit0 | exit2 | exit101,
     "`voltisctl run` itself was killed, or the machine went down. What became of the job was "
     "found out by the next run.",
     &asTheRunSays, "Do as the verdict says."},
};

}  // namespace

std::span<const Entry> RunMessages() {
    return runMessageRows;
}

}  // namespace explain
