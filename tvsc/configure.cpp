// SPDX-License-Identifier: MIT
// configure: creating, changing and deleting services.
//
// An image is a csh script. For an ordinary program it is the launcher of tvhost, the same for all of them; for a
// program that is a service itself a launcher of its own is written.
#include "tvsc/configure.h"

#include "servd/limits.h"
#include "svcapi/client.h"
#include "svcapi/image_launcher.h"
#include "tvhost/parameters.h"
#include "tvsc/act.h"
#include "tvsc/foresight.h"
#include "tvsc/host_launcher.h"
#include "tvsc/liveness.h"
#include "tvsc/mask.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/waiting.h"
#include "tvsc/words.h"
#include "util/shell_quoted.h"
#include "util/string_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <thread>

namespace {

constexpr auto deletionPause = std::chrono::milliseconds(50);

// "" takes it away.
DWORD WriteDescription(SC_HANDLE service, const std::string &text) {
    std::string written = text;
    SERVICE_DESCRIPTIONA description = {written.data()};
    const bool isWritten = ChangeServiceConfig2A(service, SERVICE_CONFIG_DESCRIPTION, &description) != FALSE;
    return isWritten ? ERROR_SUCCESS : GetLastError();
}

// What a mistake of the caller's looks like; the code says which kind.
int Refuse(Session &session, const std::string &name, const std::string &action, DWORD code, const std::string &text) {
    Failed(session, name, action, code, text);
    return Finish(session);
}

// Whether a script may be an image; one of another machine cannot be looked at. Returns 0 or 3 and a text.
DWORD CheckImage(const Session &session, const std::string &image, std::string *problem) {
    const std::string why = IsThisMachine(session.options) ? WhyNoLauncher(image) : "";
    *problem = fmt::format("{}: {}", image, why);
    return why.empty() ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

// A service that is being made.
struct PreparedService {
    HostParameters parameters;              // of one that tvhost is to run
    std::optional<LaunchedProgram> program; // of one that gets a launcher of its own
    std::string image;
    std::vector<std::string> needed; // its dependencies
};

// What it is to run. Returns 0, or the code of what went wrong and a text in *problem.
DWORD PrepareImage(const Session &session, const CreateOptions &create, PreparedService *prepared,
                   std::string *problem) {
    prepared->image = create.image;
    if (NamesCommand(create.run)) {
        const DWORD rc = ApplySettings(create.run, &prepared->parameters, problem);
        if (rc != ERROR_SUCCESS) return rc;
        *problem = "the launcher of tvhost is not installed";
        prepared->image = HostLauncherPath();
        return prepared->image.empty() ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
    }
    if (create.program.empty()) return CheckImage(session, create.image, problem);
    prepared->image = LauncherPath(create.name);
    prepared->program = AsProgram(create.program);
    *problem = "the command line cannot be split into words";
    if (!prepared->program) return ERROR_INVALID_PARAMETER;
    prepared->program->environment = create.run.environment;
    prepared->program->directory = create.run.directory.value_or("");
    return PlanLauncher(create.name, *prepared->program, problem);
}

// What a person may have meant for a shell.
void NoteMissingShell(Session &session, const CreateOptions &create) {
    const std::string why = WhyNotAShell(create.run.exec);
    if (!why.empty()) Note(session, fmt::format("tvsc: {}: {}; quotes tell that it is meant", create.name, why));
}

// The name of a service other than this one that is started with this one's launcher; nothing when there is none.
std::optional<std::string> OtherUserOf(Session &session, const std::string &name) {
    std::optional<std::string> user;
    if (QueryLauncherUser(session.manager.get(), name, &user) != ERROR_SUCCESS) user = "a service that cannot be read";
    return user;
}

// Whether the launcher that lies there already may be replaced: not one that another service is started with. Returns
// 0, or 183 and a text.
DWORD CheckSharedLauncher(Session &session, const CreateOptions &create, std::string *problem) {
    if (FindLauncher(create.name, problem) != ERROR_SUCCESS) return ERROR_SUCCESS; // there is none
    const std::optional<std::string> user = OtherUserOf(session, create.name);
    if (!user) return ERROR_SUCCESS;
    *problem = fmt::format("{}: there already, and {} is started with it", LauncherPath(create.name), *user);
    return ERROR_ALREADY_EXISTS;
}

// "not created", with what the code does not say of itself.
std::string RefusalText(const char *refused, DWORD code) {
    switch (code) {
    case ERROR_INVALID_NAME:
        return fmt::format("{}: a name has no slash and no backslash in it, and 1 to {} bytes", refused,
                           longestTextBytes);
    case ERROR_INVALID_PARAMETER:
        return fmt::format("{}: image path and group have at most {} bytes, and a tag needs a group", refused,
                           longestTextBytes);
    case ERROR_DATABASE_DOES_NOT_EXIST:
        return fmt::format("{}: the registry daemon does not answer, or could not store", refused);
    default: return refused;
    }
}

std::vector<std::string> SplitAtCommas(const std::string &text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) {
        if (!part.empty()) parts.push_back(part);
    }
    return parts;
}

const char *OrNull(const std::optional<std::string> &text) { return text ? text->c_str() : nullptr; }

// Whether a service that is to go would take to be stopped.
bool WouldStopFirst(Session &session, SC_HANDLE service, const std::string &name) {
    const DWORD refusal = ForeseeStop(session.options, service, name);
    if (refusal != ERROR_SUCCESS) Failed(session, name, "delete", refusal, "not stopped");
    return refusal == ERROR_SUCCESS;
}

// Stops a service that is to go. Returns whether it is stopped; for a dry run, whether it would be.
bool StopFirst(Session &session, SC_HANDLE service, const std::string &name) {
    if (session.options.dryRun) return WouldStopFirst(session, service, name);
    SERVICE_STATUS status = {};
    if (!tvQueryServiceStatusPassive(service, &status, nullptr)) {
        Failed(session, name, "delete", GetLastError(), "its state cannot be read");
        return false;
    }
    if (status.dwCurrentState == SERVICE_STOPPED) return true;
    if (LookAtProcess(session.options, name, status.dwCurrentState).isGone && SettleGone(service, &status)) return true;
    if (status.dwCurrentState != SERVICE_STOP_PENDING && !ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        Failed(session, name, "delete", GetLastError(), "not stopped");
        return false;
    }
    if (WaitForState(session, service, name, SERVICE_STOPPED, true, &status) == WaitEnd::reached) return true;
    Failed(session, name, "delete", ERROR_TIMEOUT, fmt::format("still {}", StateSummary(status)));
    return false;
}

// Whether a service may go: one that is not stopped would vanish from every list while its process runs on.
bool MayDelete(Session &session, SC_HANDLE service, const std::string &name, const DeleteOptions &options) {
    StopOptions stop;
    stop.withDependents = options.withDependents;
    stop.force = options.force;
    if (options.stop) return ClearDependents(session, name, "delete", stop) && StopFirst(session, service, name);
    SERVICE_STATUS status = {};
    if (options.force || !tvQueryServiceStatusPassive(service, &status, nullptr)) return true;
    if (status.dwCurrentState == SERVICE_STOPPED) return true;
    Failed(session, name, "delete", ERROR_SERVICE_ALREADY_RUNNING,
           fmt::format("{}; use --stop, or --force to leave its process alone", StateSummary(status)));
    return false;
}

// Whether the service is gone from the daemon, waiting for it if asked to.
bool IsGone(Session &session, const std::string &name, bool wait) {
    using Clock = std::chrono::steady_clock;
    const auto limit = Clock::now() + std::chrono::duration<double>(wait ? session.options.waitTimeoutSec : 0);
    for (;;) {
        std::string displayName;
        if (QueryDisplayName(session.manager.get(), name.c_str(), &displayName) == ERROR_SERVICE_DOES_NOT_EXIST) {
            return true;
        }
        if (Clock::now() >= limit) return false;
        std::this_thread::sleep_for(deletionPause);
    }
}

// A launcher goes with its service. What tvsc did not write, and what others are started with, stays.
void RemoveUnusedLauncher(Session &session, const std::string &name) {
    std::string problem;
    if (!IsThisMachine(session.options) || FindLauncher(name, &problem) != ERROR_SUCCESS) return;
    const std::optional<std::string> user = OtherUserOf(session, name);
    if (user) {
        Note(session, fmt::format("tvsc: {} stays: {} is started with it", LauncherPath(name), *user));
    } else if (RemoveLauncher(name, &problem) != ERROR_SUCCESS) {
        Note(session, fmt::format("tvsc: not removed: {}", problem));
    }
}

void NoteUnknownAmong(Session &session, const std::vector<std::string> &dependencies) {
    std::vector<ListedService> services;
    if (dependencies.empty() || EnumerateAllServices(session.manager.get(), &services) != ERROR_SUCCESS) return;
    NoteUnknownDependencies(session, dependencies, NamesOf(services));
}

// What would come of a creation. Returns the exit status.
int TellCreate(Session &session, const CreateOptions &create, const PreparedService &prepared) {
    const RequestedService wanted = {.name = create.name,
                                     .display = create.display,
                                     .image = prepared.image,
                                     .group = create.group,
                                     .user = create.user,
                                     .dependencies = prepared.needed,
                                     .wantsTag = create.tag};
    const DWORD refusal = ForeseeCreate(session, wanted);
    if (refusal != ERROR_SUCCESS) {
        return Refuse(session, create.name, "create", refusal, RefusalText("not created", refusal));
    }
    NoteUnknownAmong(session, prepared.needed);
    NoteMissingShell(session, create);
    Done(session, create.name, "create", fmt::format("would be created with the image {}", prepared.image));
    return Finish(session);
}

// Null where the daemon refuses, with GetLastError.
ServiceHandle CreateAtDaemon(Session &session, const CreateOptions &create, const PreparedService &prepared,
                             DWORD *tag) {
    const std::string dependencies = JoinMultiString(prepared.needed);
    return ServiceHandle(CreateServiceA(
        session.manager.get(), create.name.c_str(), create.display.empty() ? nullptr : create.display.c_str(),
        SERVICE_ALL_ACCESS, create.type, create.startType, create.errorControl, prepared.image.c_str(),
        create.group.c_str(), create.tag ? tag : nullptr, prepared.needed.empty() ? nullptr : dependencies.c_str(),
        create.user.c_str(), nullptr));
}

// What the daemon does not keep. Only of a service that is there: another one of this name would have lost what it
// runs. Codes as PrepareImage.
DWORD WriteWhatItRuns(SC_HANDLE service, const CreateOptions &create, const PreparedService &prepared,
                      std::string *problem) {
    DWORD rc = ERROR_SUCCESS;
    *problem = "its parameters cannot be written";
    if (NamesCommand(create.run)) rc = WriteHostParameters(create.name, prepared.parameters);
    if (prepared.program) rc = WriteLauncher(create.name, *prepared.program, problem);
    if (rc != ERROR_SUCCESS || create.description.empty()) return rc;
    *problem = "its description cannot be written";
    return WriteDescription(service, create.description);
}

// What tvhost is to run for a service from now on, and what it runs now.
struct ProgramChange {
    HostParameters before, after;
};

// Prepares a change of that, which makes the service one of tvhost's where a command is named; nothing is written.
// Returns whether it can be made; why it cannot is noted.
//   image  set where the service gets another one
bool PrepareProgram(Session &session, SC_HANDLE service, const std::string &name, const ProgramSettings &settings,
                    ProgramChange *change, std::optional<std::string> *image) {
    const auto refuse = [&](DWORD code, const std::string &why) {
        Failed(session, name, "config", code, why);
        return false;
    };
    if (!IsThisMachine(session.options))
        return refuse(ERROR_NOT_SUPPORTED, "programs are for the daemon of this machine");
    ServiceConfig present;
    DWORD rc = QueryConfig(service, &present);
    if (rc != ERROR_SUCCESS) return refuse(rc, "its configuration cannot be read");
    const bool isHosted = IsTvhostImage(present.imagePath);
    if (!isHosted && !NamesCommand(settings)) {
        return refuse(ERROR_NOT_SUPPORTED, "tvhost does not run it; --exec has it run a program");
    }
    std::string problem;
    rc = isHosted ? ReadHostParameters(name, &change->before, &problem) : DWORD{ERROR_SUCCESS};
    if (rc != ERROR_SUCCESS && !NamesCommand(settings)) return refuse(rc, problem);
    change->after = change->before;
    rc = ApplySettings(settings, &change->after, &problem);
    if (rc != ERROR_SUCCESS) return refuse(rc, problem);
    if (!isHosted) *image = HostLauncherPath();
    if (*image && (*image)->empty()) return refuse(ERROR_FILE_NOT_FOUND, "the launcher of tvhost is not installed");
    return true;
}

// What the daemon does not keep, and so only once it has taken the rest. Returns 0, or the code of what went wrong and
// a text in *problem.
DWORD WriteRest(SC_HANDLE service, const std::string &name, const ConfigOptions &config, const ProgramChange &program,
                std::string *problem) {
    DWORD rc = ERROR_SUCCESS;
    *problem = "its parameters cannot be written";
    if (SaysAnything(config.run)) rc = WriteHostParameters(name, program.after, &program.before);
    if (rc != ERROR_SUCCESS || !config.description) return rc;
    *problem = "its description cannot be written";
    return WriteDescription(service, *config.description);
}

// What would come of a change.
void TellConfig(Session &session, SC_HANDLE service, const std::string &name, const ConfigOptions &config) {
    RequestedService wanted = {name, config.display, config.image, config.group, config.user};
    if (config.dependencies) wanted.dependencies = SplitAtCommas(*config.dependencies);
    wanted.hasErrorControl = config.errorControl.has_value();
    const DWORD refusal = ForeseeConfig(session, service, wanted);
    if (refusal != ERROR_SUCCESS) {
        return Failed(session, name, "config", refusal, RefusalText("not changed", refusal));
    }
    NoteUnknownAmong(session, wanted.dependencies.value_or(std::vector<std::string>()));
    Done(session, name, "config", "would be changed");
}

void ChangeOne(Session &session, const std::string &name, ConfigOptions config) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
    if (service == nullptr) {
        Failed(session, name, "config", GetLastError());
        return;
    }
    ServiceConfig present;
    if (config.user && QueryConfig(service.get(), &present) == ERROR_SUCCESS && IsMasked(present.account)) {
        return Failed(session, name, "config", ERROR_SERVICE_DISABLED,
                      "it is masked; first: tvsc unmask " + NameArgument(name));
    }
    ProgramChange program;
    if (SaysAnything(config.run) &&
        !PrepareProgram(session, service.get(), name, config.run, &program, &config.image)) {
        return;
    }
    if (session.options.dryRun) return TellConfig(session, service.get(), name, config);
    DWORD tag = 0;
    const std::string dependencies = JoinMultiString(SplitAtCommas(config.dependencies.value_or("")));
    if (!ChangeServiceConfigA(
            service.get(), config.type.value_or(SERVICE_NO_CHANGE), config.startType.value_or(SERVICE_NO_CHANGE),
            config.errorControl.value_or(SERVICE_NO_CHANGE), OrNull(config.image), OrNull(config.group),
            config.tag ? &tag : nullptr, config.dependencies ? dependencies.c_str() : nullptr, OrNull(config.user),
            nullptr, OrNull(config.display))) {
        const DWORD code = GetLastError();
        return Failed(session, name, "config", code, RefusalText("not changed", code));
    }
    std::string problem;
    const DWORD rc = WriteRest(service.get(), name, config, program, &problem);
    if (rc != ERROR_SUCCESS) return Failed(session, name, "config", rc, problem);
    NoteUnknownAmong(session, SplitAtCommas(config.dependencies.value_or("")));
    const std::string since = SaysAnything(config.run) ? "; holds from its next start on" : "";
    Done(session, name, "config", (config.tag ? fmt::format("changed, tag {}", tag) : "changed") + since);
}

} // namespace

void DeleteNamed(Session &session, const std::string &name, const DeleteOptions &options) {
    ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
    if (service == nullptr) {
        Failed(session, name, "delete", GetLastError());
        return;
    }
    // Without the registry the daemon forgets a service, whose key brings it back when the daemon starts again.
    ServiceConfig config;
    if (QueryConfig(service.get(), &config) == ERROR_REGISTRY_IO_FAILED) {
        Failed(session, name, "delete", ERROR_REGISTRY_IO_FAILED, "not deleted");
        return;
    }
    if (!MayDelete(session, service.get(), name, options)) return;
    if (session.options.dryRun) return Done(session, name, "delete", "would be deleted");
    if (!DeleteService(service.get())) {
        Failed(session, name, "delete", GetLastError());
        return;
    }
    service.reset();
    if (IsGone(session, name, options.wait)) {
        RemoveUnusedLauncher(session, name);
        Done(session, name, "delete", "deleted");
    } else if (options.wait) {
        Failed(session, name, "delete", ERROR_SERVICE_MARKED_FOR_DELETE, "still there");
    } else {
        Done(session, name, "delete",
             "marked for deletion; goes when it is stopped and closed by all, at the latest when the daemon starts "
             "again");
    }
}

int RunCreate(Session &session, const CreateOptions &create) {
    if (create.image.empty() && !IsThisMachine(session.options)) {
        return Refuse(session, create.name, "create", ERROR_NOT_SUPPORTED,
                      "programs are for the daemon of this machine; another one takes --image");
    }
    PreparedService prepared;
    std::string problem;
    DWORD rc = PrepareImage(session, create, &prepared, &problem);
    if (rc == ERROR_SUCCESS && prepared.program) rc = CheckSharedLauncher(session, create, &problem);
    if (rc != ERROR_SUCCESS) return Refuse(session, create.name, "create", rc, problem);
    prepared.needed = create.dependencies;
    std::erase(prepared.needed, ""); // which would end the list
    if (session.options.dryRun) return TellCreate(session, create, prepared);
    DWORD tag = 0;
    const ServiceHandle service = CreateAtDaemon(session, create, prepared, &tag);
    if (service == nullptr) {
        const DWORD code = GetLastError();
        return Refuse(session, create.name, "create", code, RefusalText("not created", code));
    }
    rc = WriteWhatItRuns(service.get(), create, prepared, &problem);
    if (rc != ERROR_SUCCESS) {
        (void)WithdrawService(service.get()); // half a service is none
        return Refuse(session, create.name, "create", rc, problem);
    }
    NoteUnknownAmong(session, prepared.needed);
    NoteMissingShell(session, create);
    Done(session, create.name, "create", create.tag ? fmt::format("created, tag {}", tag) : "created");
    return Finish(session);
}

int RunConfig(Session &session, const ConfigOptions &config) {
    std::string problem;
    if (config.image && CheckImage(session, *config.image, &problem) != ERROR_SUCCESS) {
        return Refuse(session, config.name, "config", ERROR_PATH_NOT_FOUND, problem);
    }
    for (const std::string &name : ResolveNames(session, {config.name}, "config")) {
        ChangeOne(session, name, config);
    }
    return Finish(session);
}

int RunSwitch(Session &session, const std::string &action, const std::vector<std::string> &names, DWORD startType) {
    for (const std::string &name : ResolveNames(session, names, action)) {
        const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_CHANGE_CONFIG));
        const std::string text = fmt::format("start type {}", StartWord(startType));
        const bool isTold = service != nullptr && session.options.dryRun;
        const DWORD refusal = isTold ? ForeseeConfig(session, service.get(), {.name = name}) : DWORD{ERROR_SUCCESS};
        if (refusal != ERROR_SUCCESS) {
            Failed(session, name, action, refusal, "not changed");
        } else if (isTold) {
            Done(session, name, action, "would have " + text);
        } else if (service != nullptr &&
                   ChangeServiceConfigA(service.get(), SERVICE_NO_CHANGE, startType, SERVICE_NO_CHANGE, nullptr,
                                        nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)) {
            Done(session, name, action, text);
        } else {
            Failed(session, name, action, GetLastError(), "not changed");
        }
    }
    return Finish(session);
}

int RunDelete(Session &session, const DeleteOptions &options) {
    for (const std::string &name : ResolveNames(session, options.names, "delete")) {
        DeleteNamed(session, name, options);
    }
    return Finish(session);
}
