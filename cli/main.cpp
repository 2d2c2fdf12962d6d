// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/Log.h>
#include <MorvaneOperation/platform/linux/StandardStreams.h>

#include <clocale>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

#include "CommandLine.h"
#include "CommandParser.h"
#include "CommandRun.h"
#include "CommandTable.h"
#include "JsonDocument.h"
#include "Text.h"

namespace morvane {
namespace {

/// Runs the command; where its words do not suffice, it also tells where their use is told.
Outcome runWithHelp(const CommandLine& line, const CommonOptions& common) {
    auto outcome = runCommand(line, common);
    // What cannot be compared ends with the status of words that are wrong.
    const bool tellsItself = std::holds_alternative<Outcome>(line) ||
                             std::holds_alternative<EditOptions>(line) ||
                             endsLikeDiff(common.command);
    return tellsItself ? outcome : pointedToHelp(std::move(outcome), common.command);
}

/// The exit status of a run that could not do its work.
ExitCode failureOf(const CommonOptions& common) {
    return endsLikeDiff(common.command) ? ExitTrouble : ExitFailure;
}

/// For programs, what a command has not printed itself: that it was done, or why not.
void completeJson(Outcome& outcome, const CommonOptions& common) {
    if (common.json == JsonForm::lines && outcome.output.empty())
        outcome.output = lastJsonLine(common.command, outcome);
    else if (common.json == JsonForm::object && outcome.output.empty())
        outcome.output = jsonDocument(common.command, outcome);
}

}  // namespace
}  // namespace morvane

int main(int argc, char** argv) {
    morvane::openMissingStandardStreams();
    // What texts are made of. Numbers are ICU's, and no time is shown.
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    // The request that a connection ends with tells it in its own words.
    morvane::setLogSink([](std::string_view) {});
    morvane::Outcome outcome;
    morvane::CommonOptions common;
    try {
        const auto line = morvane::parseCommandLine(argc, argv, MORVANE_VERSION, &common);
        outcome = morvane::runWithHelp(line, common);
    } catch (const std::filesystem::filesystem_error& failure) {
        // A path that is not whole begins at the current folder; nothing else throws this.
        outcome = {
            morvane::failureOf(common),
            {},
            morvane::message(
                {morvane::say("the current folder cannot be told: %1", failure.code().message()),
                 morvane::say("Go to a folder that exists, or write the whole path.")})};
    } catch (const std::exception& failure) {
        outcome = {morvane::failureOf(common), {}, morvane::message({failure.what()})};
    }
    morvane::completeJson(outcome, common);
    const bool printed = morvane::printOut(outcome.output);
    morvane::printError(outcome.message);
    if (!printed) {
        const std::string why = std::strerror(morvane::whyNotPrinted());
        morvane::printError(
            morvane::message({morvane::say("the output could not be written: %1", why)}));
        return morvane::failureOf(common);
    }
    return outcome.exitCode;
}
