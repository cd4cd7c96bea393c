// SPDX-License-Identifier: MIT
// hosted_settings: from options to the parameters of tvhost, and back to a command line.
#include "tvsc/hosted_settings.h"

#include "tv/winerror.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace {

// Program and arguments, in either form. Returns 0, or 87 and a text.
DWORD ReadCommand(const ProgramSettings &settings, HostParameters *parameters, std::string *problem) {
    parameters->commandLine.clear();
    parameters->arguments.clear();
    if (settings.exec.empty()) {
        const std::vector<std::string> &words = settings.words;
        *problem = "an argument is empty, which a list cannot hold; --exec can";
        parameters->application = words.front();
        parameters->arguments.assign(words.begin() + 1, words.end());
        const bool hasEmpty = std::find(words.begin(), words.end(), "") != words.end();
        return hasEmpty ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
    }
    const std::optional<std::string> program = FirstWord(settings.exec, &parameters->commandLine);
    *problem = "the command line cannot be split into words";
    if (!program || program->empty() || !SplitIntoWords(parameters->commandLine)) return ERROR_INVALID_PARAMETER;
    parameters->application = *program;
    return ERROR_SUCCESS;
}

void RemoveVariable(const std::string &name, std::vector<std::string> *environment) {
    std::erase_if(*environment, [&](const std::string &one) { return one.starts_with(name + '='); });
}

// Sets a variable, in the place of the one of the same name.
void SetVariable(const std::string &variable, std::vector<std::string> *environment) {
    RemoveVariable(variable.substr(0, variable.find('=')), environment);
    environment->push_back(variable);
}

} // namespace

bool NamesCommand(const ProgramSettings &settings) { return !settings.exec.empty() || !settings.words.empty(); }

bool NeedsTvhost(const ProgramSettings &settings) {
    return settings.standardOutput || settings.standardError || settings.stopTimeoutMs || !settings.settings.empty();
}

bool SaysAnything(const ProgramSettings &settings) {
    return NamesCommand(settings) || NeedsTvhost(settings) || settings.directory || !settings.environment.empty() ||
           !settings.removedEnvironment.empty();
}

DWORD ApplySettings(const ProgramSettings &settings, HostParameters *parameters, std::string *problem) {
    if (NamesCommand(settings)) {
        const DWORD rc = ReadCommand(settings, parameters, problem);
        if (rc != ERROR_SUCCESS) return rc;
        const std::string why = WhyNoProgram(parameters->application);
        *problem = fmt::format("{}: {}", parameters->application, why);
        if (!why.empty()) return ERROR_PATH_NOT_FOUND;
    }
    for (const std::string &name : settings.removedEnvironment) {
        RemoveVariable(name, &parameters->environment);
    }
    for (const std::string &variable : settings.environment) {
        SetVariable(variable, &parameters->environment);
    }
    if (settings.directory) parameters->directory = *settings.directory;
    if (settings.standardOutput) parameters->standardOutput = *settings.standardOutput;
    if (settings.standardError) parameters->standardError = *settings.standardError;
    if (settings.stopTimeoutMs) parameters->stopTimeoutMs = *settings.stopTimeoutMs;
    for (const std::string &setting : settings.settings) {
        const DWORD rc = SetHostParameter(setting, parameters, problem);
        if (rc != ERROR_SUCCESS) return rc;
    }
    return ERROR_SUCCESS;
}

bool IsTvhostImage(const std::string &image) { return std::filesystem::path(image).filename() == "tvhost.csh"; }

std::string CommandOf(const std::string &service, const std::string &image) {
    if (image == LauncherPath(service)) return GivenCommandLine(service).value_or("");
    HostParameters parameters;
    std::string problem;
    if (!IsTvhostImage(image) || ReadHostParameters(service, &parameters, &problem) != ERROR_SUCCESS) return "";
    std::string command = ShellQuoted(parameters.application);
    if (!parameters.commandLine.empty()) command += " " + parameters.commandLine;
    for (const std::string &argument : parameters.arguments) {
        command += " " + ShellQuoted(argument);
    }
    return command;
}
