// SPDX-License-Identifier: MIT
// sc_change: the verbs of sc that create, change and delete services.
#include "tvsc/sc_call.h"

#include "util/string_list.h"

#include <fmt/format.h>

#include <charconv>

namespace {

// What create and config say, as the Win32 functions take it.
struct ScConfiguration {
    DWORD type = SERVICE_NO_CHANGE, startType = SERVICE_NO_CHANGE, errorControl = SERVICE_NO_CHANGE;
    bool wantsTag = false;
    std::optional<BOOL> isDelayed; // of an automatic start
    std::optional<std::string> dependencies;
};

std::vector<std::string> SplitAtSlashes(const std::string &text) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('/', begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

bool ReadConfiguration(const ScCall &call, ScConfiguration *config) {
    constexpr DWORD delayed = 100, interactive = SERVICE_INTERACTIVE_PROCESS;
    bool isRight = ReadNumberWord(call, "type",
                                  {{"own", SERVICE_WIN32_OWN_PROCESS},
                                   {"share", SERVICE_WIN32_SHARE_PROCESS},
                                   {"kernel", SERVICE_KERNEL_DRIVER},
                                   {"filesys", SERVICE_FILE_SYSTEM_DRIVER},
                                   {"rec", SERVICE_RECOGNIZER_DRIVER},
                                   {"adapt", SERVICE_ADAPTER},
                                   {"interact", interactive | SERVICE_WIN32_OWN_PROCESS}},
                                  &config->type) &&
                   ReadNumberWord(call, "start",
                                  {{"boot", SERVICE_BOOT_START},
                                   {"system", SERVICE_SYSTEM_START},
                                   {"auto", SERVICE_AUTO_START},
                                   {"demand", SERVICE_DEMAND_START},
                                   {"disabled", SERVICE_DISABLED},
                                   {"delayed-auto", delayed}},
                                  &config->startType) &&
                   ReadNumberWord(call, "error",
                                  {{"normal", SERVICE_ERROR_NORMAL},
                                   {"severe", SERVICE_ERROR_SEVERE},
                                   {"critical", SERVICE_ERROR_CRITICAL},
                                   {"ignore", SERVICE_ERROR_IGNORE}},
                                  &config->errorControl);
    DWORD tag = 0;
    isRight = isRight && ReadNumberWord(call, "tag", {{"yes", 1}, {"no", 0}}, &tag);
    config->wantsTag = tag != 0;
    if (config->startType == delayed || config->startType == SERVICE_AUTO_START) {
        config->isDelayed = config->startType == delayed ? TRUE : FALSE;
        config->startType = SERVICE_AUTO_START;
    }
    if (const char *depend = ScOption(call, "depend"); depend != nullptr) {
        std::vector<std::string> names = SplitAtSlashes(depend);
        std::erase(names, "");
        config->dependencies = JoinMultiString(names);
    }
    return isRight;
}

const char *OrNull(const std::optional<std::string> &text) { return text ? text->c_str() : nullptr; }

BOOL SetDelayed(SC_HANDLE service, const ScConfiguration &config) {
    SERVICE_DELAYED_AUTO_START_INFO info = {config.isDelayed.value_or(FALSE)};
    return ChangeServiceConfig2A(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO, &info);
}

void PrintTag(const ScConfiguration &config, DWORD tag) {
    if (config.wantsTag) fmt::print("Tag = {}\n", tag);
}

bool ReadDecimal(std::string_view text, DWORD *number) {
    const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return code == std::errc() && end == text.data() + text.size();
}

// "restart/5000/run/1000": kinds and delays in turn; nothing at all takes the actions away.
bool ReadActions(const char *said, std::vector<SC_ACTION> *actions) {
    const std::map<std::string, SC_ACTION_TYPE> words = {{"", SC_ACTION_NONE},
                                                         {"none", SC_ACTION_NONE},
                                                         {"restart", SC_ACTION_RESTART},
                                                         {"reboot", SC_ACTION_REBOOT},
                                                         {"run", SC_ACTION_RUN_COMMAND}};
    const std::vector<std::string> parts = SplitAtSlashes(said);
    if (parts.size() == 1 && parts.front().empty()) return true;
    for (std::size_t i = 0; i < parts.size(); i += 2) {
        const auto type = words.find(parts[i]);
        SC_ACTION action = {};
        const bool hasDelay = i + 1 < parts.size() && !parts[i + 1].empty();
        if (type == words.end() || (hasDelay && !ReadDecimal(parts[i + 1], &action.Delay))) return false;
        action.Type = type->second;
        actions->push_back(action);
    }
    return true;
}

LPSTR Borrowed(const char *text) { return const_cast<LPSTR>(text); } // the functions change nothing there

} // namespace

int ScCreate(ScCall &call) {
    ScConfiguration config;
    if (!ReadConfiguration(call, &config) || ScOption(call, "binpath") == nullptr) {
        return ScFailed("CreateService", ERROR_INVALID_PARAMETER);
    }
    const auto orElse = [](DWORD said, DWORD otherwise) { return said != SERVICE_NO_CHANGE ? said : otherwise; };
    DWORD tag = 0;
    ServiceHandle service;
    const int status = ScChange(call, "CreateService", [&] {
        service.reset(CreateServiceA(
            call.session.manager.get(), call.names.front().c_str(), ScOption(call, "displayname"), SERVICE_ALL_ACCESS,
            orElse(config.type, SERVICE_WIN32_OWN_PROCESS), orElse(config.startType, SERVICE_DEMAND_START),
            orElse(config.errorControl, SERVICE_ERROR_NORMAL), ScOption(call, "binpath"), ScOption(call, "group"),
            config.wantsTag ? &tag : nullptr, OrNull(config.dependencies), ScOption(call, "obj"),
            ScOption(call, "password")));
        return service != nullptr ? TRUE : FALSE;
    });
    if (status != EXIT_DONE || service == nullptr) return status;
    PrintTag(config, tag);
    if (config.isDelayed.value_or(FALSE) == FALSE || SetDelayed(service.get(), config)) return EXIT_DONE;
    return ScFailed("ChangeServiceConfig2", GetLastError());
}

int ScConfig(ScCall &call) {
    ScConfiguration config;
    if (!ReadConfiguration(call, &config)) return ScFailed("ChangeServiceConfig", ERROR_INVALID_PARAMETER);
    int status = 0;
    const ServiceHandle service = OpenNamed(call, "OpenService", &status);
    if (service == nullptr) return status;
    DWORD tag = 0;
    status = ScChange(call, "ChangeServiceConfig", [&] {
        return ChangeServiceConfigA(service.get(), config.type, config.startType, config.errorControl,
                                    ScOption(call, "binpath"), ScOption(call, "group"),
                                    config.wantsTag ? &tag : nullptr, OrNull(config.dependencies),
                                    ScOption(call, "obj"), ScOption(call, "password"), ScOption(call, "displayname"));
    });
    if (status != EXIT_DONE || call.session.options.dryRun) return status;
    PrintTag(config, tag);
    if (!config.isDelayed || SetDelayed(service.get(), config)) return EXIT_DONE;
    return ScFailed("ChangeServiceConfig2", GetLastError());
}

int ScDescription(ScCall &call) {
    int status = 0;
    const ServiceHandle service = OpenNamed(call, "OpenService", &status);
    if (service == nullptr) return status;
    SERVICE_DESCRIPTIONA description = {Borrowed(call.names.size() > 1 ? call.names[1].c_str() : "")};
    return ScChange(call, "ChangeServiceConfig2",
                    [&] { return ChangeServiceConfig2A(service.get(), SERVICE_CONFIG_DESCRIPTION, &description); });
}

int ScFailure(ScCall &call) {
    SERVICE_FAILURE_ACTIONSA info = {};
    std::vector<SC_ACTION> actions;
    const char *reset = ScOption(call, "reset"), *said = ScOption(call, "actions");
    info.dwResetPeriod = 0xFFFFFFFF;
    const bool hasPeriod = reset != nullptr && std::string_view(reset) != "INFINITE";
    const bool isRight = (!hasPeriod || ReadDecimal(reset, &info.dwResetPeriod)) &&
                         (said == nullptr || ReadActions(said, &actions)) && (reset != nullptr) == (said != nullptr);
    if (!isRight) return ScFailed("ChangeServiceConfig2", ERROR_INVALID_PARAMETER); // both or neither
    int status = 0;
    const ServiceHandle service = OpenNamed(call, "OpenService", &status);
    if (service == nullptr) return status;
    info.lpRebootMsg = Borrowed(ScOption(call, "reboot"));
    info.lpCommand = Borrowed(ScOption(call, "command"));
    info.cActions = static_cast<DWORD>(actions.size());
    actions.resize(actions.size() + 1); // an array that is there, also without any
    if (said != nullptr) info.lpsaActions = actions.data();
    return ScChange(call, "ChangeServiceConfig2",
                    [&] { return ChangeServiceConfig2A(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS, &info); });
}

int ScDelete(ScCall &call) {
    int status = 0;
    const ServiceHandle service = OpenNamed(call, "OpenService", &status);
    if (service == nullptr) return status;
    return ScChange(call, "DeleteService", [&] { return DeleteService(service.get()); });
}
