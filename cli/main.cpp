#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "CommandLine.h"
#include "FileConnector.h"

namespace morvane {
namespace {

Outcome run(int argc, char** argv) {
    const auto line = parseCommandLine(argc, argv, MORVANE_VERSION);
    if (const auto* outcome = std::get_if<Outcome>(&line)) {
        return *outcome;
    }
    const Style style{
        wantsColours(isatty(STDOUT_FILENO) != 0, std::getenv("NO_COLOR"), std::getenv("TERM"))};
    const auto connector =
        MVConnector::initWithQueueLabel<FileConnector>("io.github.morvaneoperation.morvane");
    return runAcl(
        std::get<AclOptions>(line), [&](const NSURL& url) { return connector->aclEntries(url); },
        style);
}

bool print(const std::string& text, std::FILE* to) {
    return std::fwrite(text.data(), 1, text.size(), to) == text.size() && std::fflush(to) == 0;
}

}  // namespace
}  // namespace morvane

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    morvane::Outcome outcome;
    try {
        outcome = morvane::run(argc, argv);
    } catch (const std::exception& failure) {
        outcome = {morvane::ExitFailure, {}, std::string("morvane: ") + failure.what() + "\n"};
    }
    const bool printed = morvane::print(outcome.output, stdout);
    morvane::print(outcome.message, stderr);
    if (!printed) {
        std::perror("morvane: the output could not be written");
        return morvane::ExitFailure;
    }
    return outcome.exitCode;
}
