// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/job/Following.h"

#include <utility>

#include "companion/transcript/Transcript.h"

namespace job {

namespace {

using transcript::Block;
using transcript::Transcript;

void Feed(verdict::Account& account, const Transcript& all) {
    for (const Block& block : all.blocks)
        block.toRegister ? account.Wrote(block.bytes) : account.Arrived(block.bytes);
}

// A log that does not count what the driver sent has lines missing: a full disk does not stop the
// driver. What it refused is told by its exit code, before it sends any command. One that is killed
// does not count: a count of other frames is of a run whose first line was lost.
void JudgeEnd(verdict::Account& account, const Transcript& all, End end) {
    if (end == End::Lost) return account.LoseTrack();
    if (all.Whole()) return;
    const bool uncounted = !all.damaged && !all.framesSent;
    if (end == End::Killed && uncounted) return account.CutOff();
    if (end == End::Refusing && uncounted) return;
    account.LoseTrack();
}

}  // namespace

verdict::Wire WireOf(const runner::Profile& profile) {
    const bool margay = profile.protocolFormatting == ProtocolFormatting_Margay;
    return {margay ? ProtocolFormatting_Margay : ProtocolFormatting_Ocelot,
            static_cast<std::uint8_t>(profile.networkId), !profile.network.empty()};
}

verdict::Promises PromisesOf(const runner::Profile& profile) {
    std::string words;
    for (const std::string& word : profile.habit) words += word + " ";
    return verdict::PromisesOf(words);
}

std::optional<verdict::Status> FirstStatus(const runner::Profile& profile, const std::string& log) {
    return Follow(profile, {}, {}, log, End::ByItself).Conclude().before;
}

verdict::Account Follow(const runner::Profile& profile, const std::vector<plan::Command>& plan,
                        const verdict::Remains& before, const std::string& log, End end) {
    verdict::Question question;
    question.wire = WireOf(profile);
    for (const plan::Command& command : plan) question.plan.push_back(command.code);
    question.promises = PromisesOf(profile);
    question.before = before;
    verdict::Account account(std::move(question));
    const Transcript all = transcript::ReadLog(log);
    Feed(account, all);
    JudgeEnd(account, all, end);
    return account;
}

void FollowStatusRead(verdict::Account& account, const std::string& log) {
    account.NextRun();
    Feed(account, transcript::ReadLog(log));
}

std::size_t CommandsIn(const runner::Profile& profile, const std::string& log) {
    return Follow(profile, {}, {}, log, End::ByItself).CommandsSent();
}

}  // namespace job
