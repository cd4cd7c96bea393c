// SPDX-License-Identifier: MIT
// host: what tests on a private host share.
//
// Processes are found by their parent in /proc: this process is their "child subreaper", so that whatever loses its
// parent below it becomes its child. The registry is written with the protocol's own records; no code of the registry
// client runs here.
#include "tests/support/host.h"

#include "servd/service_keys.h"
#include "tv/winreg.h"

#include <fcntl.h>
#include <link.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t tarvoVersion = 6; // the protocol level in the identity

[[noreturn]] void Fail(const std::string &what) { throw std::runtime_error(what); }

[[noreturn]] void FailSystem(const std::string &what) { Fail(what + ": " + std::strerror(errno)); }

// --- processes

struct ProcessLine { // from /proc/PID/stat
    pid_t process;
    std::string name;
    char state;
    pid_t parent;
};

std::optional<ProcessLine> ReadProcess(const std::string &directory) {
    const std::string line = ReadWhatIsThere(directory + "/stat");
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos) return {};
    ProcessLine read = {std::stoi(line), line.substr(open + 1, close - open - 1), 0, 0};
    std::istringstream(line.substr(close + 1)) >> read.state >> read.parent;
    return read;
}

std::vector<ProcessLine> ReadChildren(pid_t parent) {
    std::vector<ProcessLine> children;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::optional<ProcessLine> read = ReadProcess(entry.path());
        if (read && read->parent == parent) children.push_back(*read);
    }
    return children;
}

std::vector<std::string> EnvironmentWith(const std::vector<std::string> &changes) {
    std::vector<std::string> result;
    const auto nameOf = [](const std::string &entry) { return entry.substr(0, entry.find('=')); };
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const bool changed = std::any_of(changes.begin(), changes.end(),
                                         [&](const std::string &change) { return nameOf(change) == nameOf(*entry); });
        if (!changed) result.emplace_back(*entry);
    }
    std::copy_if(changes.begin(), changes.end(), std::back_inserter(result),
                 [](const std::string &change) { return change.find('=') != std::string::npos; });
    return result;
}

std::vector<char *> PointersTo(const std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    for (const std::string &text : texts) {
        pointers.push_back(const_cast<char *>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

void RedirectTo(const std::string &file, int descriptor) {
    if (file.empty()) return;
    const int opened = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (opened < 0 || dup2(opened, descriptor) < 0) _exit(126);
}

// --- what is left at the end

std::mutex scratchFolders; // tests run programs from several threads, too
std::vector<std::string> &ScratchFolders() {
    static std::vector<std::string> folders;
    return folders;
}

pid_t owner = 0; // the process whose exit cleans up; a child that exits leaves everything alone

void CleanUp() {
    if (getpid() != owner) return;
    EndAllProcesses();
    for (const std::string &folder : ScratchFolders()) {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
}

void CleanUpAtExit() {
    if (owner != 0) return;
    (void)ScratchFolders(); // made before the exit handler, so that it is destroyed after it has run
    owner = getpid();
    (void)std::atexit(CleanUp);
}

// --- registry

regd_USER_DATA Identity() { return {tarvoVersion, getuid(), Text("test"), 0}; }

// Calls a procedure of the registry daemon and hands out the body; the discriminant must be 1.
template <typename Argument>
Decoded<ResultOf<Argument>> CallRegistry(CLIENT *client, Argument argument) {
    argument.user = Identity();
    auto result = CallForAnswer(client, argument);
    if (result->discriminant != 1) Fail("registry daemon: a reply without body");
    return result;
}

void Require(std::uint32_t status, const std::string &what) {
    if (status != ERROR_SUCCESS) Fail(what + ": registry daemon answers " + std::to_string(status));
}

// A key opened on a connection of its own; both are given back at the end of the scope.
struct OpenedKey {
    RpcClient client;
    std::uint32_t status = 0;
    std::uint32_t key = 0;

    OpenedKey() = default;
    OpenedKey(OpenedKey &&) = default;
    ~OpenedKey() {
        regd_REG_CLOSE_KEY argument = {Identity(), key};
        Decoded<regd_BASIC_RES> result;
        if (client && status == 0) (void)CallProcedure(client.get(), argument, &*result, answerTimeout);
    }
};

OpenedKey OpenKey(const std::string &path) {
    OpenedKey opened;
    opened.client = DialRegistryDaemon();
    regd_REG_OPEN_KEY_EX argument = {};
    argument.key = HKEY_LOCAL_MACHINE;
    argument.subKey = Text(path.c_str());
    const auto result = CallRegistry(opened.client.get(), argument);
    opened.status = result.record.body.status;
    opened.key = result.record.body.key;
    return opened;
}

OpenedKey OpenExistingKey(const std::string &path) {
    OpenedKey opened = OpenKey(path);
    Require(opened.status, path);
    return opened;
}

OpenedKey CreateKey(const std::string &path) {
    OpenedKey opened;
    opened.client = DialRegistryDaemon();
    regd_REG_CREATE_KEY_EX argument = {};
    argument.key = HKEY_LOCAL_MACHINE;
    argument.subKey = Text(path.c_str());
    argument.keyClass = Text("classIsNull");
    argument.classIsNull = 1;
    const auto result = CallRegistry(opened.client.get(), argument);
    opened.status = result.record.body.status;
    opened.key = result.record.body.key;
    Require(opened.status, path);
    return opened;
}

constexpr std::uint32_t roomBytes = 1 << 20; // offered for names and data

} // namespace

// --- programs ------------------------------------------------------------------------------------------------------

std::string ProgramPath(std::string_view name) {
    const char *folder = std::getenv("TV_BIN");
    if (folder == nullptr) Fail("TV_BIN is not set");
    return std::string(folder) + "/" + std::string(name);
}

pid_t StartProgram(const Launch &launch) {
    CleanUpAtExit();
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) FailSystem("prctl");
    const std::vector<std::string> environment = EnvironmentWith(launch.environment);
    const std::vector<char *> arguments = PointersTo(launch.command);
    const std::vector<char *> variables = PointersTo(environment);
    const pid_t child = fork();
    if (child < 0) FailSystem("fork");
    if (child > 0) return child;
    if (!launch.directory.empty() && chdir(launch.directory.c_str()) != 0) _exit(127);
    RedirectTo(launch.outputFile, STDOUT_FILENO);
    RedirectTo(launch.errorFile, STDERR_FILENO);
    for (const int descriptor : launch.closed) {
        (void)close(descriptor);
    }
    const rlimit limit = {launch.descriptors, launch.descriptors};
    if (launch.descriptors != 0 && setrlimit(RLIMIT_NOFILE, &limit) != 0) _exit(127);
    (void)execve(arguments[0], arguments.data(), variables.data());
    _exit(127);
}

bool HasEnded(pid_t process) {
    siginfo_t info = {};
    if (waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0) FailSystem("waitid");
    return info.si_pid == process;
}

int WaitForEnd(pid_t process, int timeoutMs) {
    if (!WaitUntil([process] { return HasEnded(process); }, timeoutMs)) {
        Fail("process " + std::to_string(process) + " still runs after " + std::to_string(timeoutMs) + " ms");
    }
    int status = 0;
    (void)waitpid(process, &status, 0);
    return status;
}

int RunProgram(const Launch &launch, int timeoutMs) { return WaitForEnd(StartProgram(launch), timeoutMs); }

Ended RunAndRead(const Launch &launch, int timeoutMs) {
    const std::string folder = MakeScratchFolder();
    Launch redirected = launch;
    redirected.outputFile = folder + "/output";
    redirected.errorFile = folder + "/error";
    const int status = RunProgram(redirected, timeoutMs);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), ReadFile(redirected.outputFile),
            ReadFile(redirected.errorFile)};
}

std::vector<pid_t> ChildrenOf(pid_t parent, std::string_view name) {
    std::vector<pid_t> living;
    for (const ProcessLine &child : ReadChildren(parent)) {
        if (child.state != 'Z' && (name.empty() || child.name == name)) living.push_back(child.process);
    }
    return living;
}

std::vector<pid_t> ZombiesOf(pid_t parent) {
    std::vector<pid_t> zombies;
    for (const ProcessLine &child : ReadChildren(parent)) {
        if (child.state == 'Z') zombies.push_back(child.process);
    }
    return zombies;
}

void EndAllProcesses() {
    for (;;) {
        for (const ProcessLine &child : ReadChildren(getpid())) {
            (void)kill(child.process, SIGKILL);
        }
        pid_t ended;
        while ((ended = waitpid(-1, nullptr, WNOHANG)) > 0) {
        }
        if (ended < 0 && errno == ECHILD) return;
        SleepMs(1);
    }
}

// --- daemons -------------------------------------------------------------------------------------------------------

pid_t StartRegistryDaemon(const std::string &databaseFile) {
    const pid_t process = StartProgram({.command = {ProgramPath("tvregd"), "--database", databaseFile}});
    const auto answers = [process] { return HasEnded(process) || WaitForProgram(REGDAEMONPROG, REGDAEMONVERS, 0); };
    if (!WaitUntil(answers) || HasEnded(process)) Fail("tvregd does not answer");
    return process;
}

DetachedDaemon StartDetached(const Launch &launch, std::string_view programName) {
    const std::string program(programName.empty() ? std::string_view(launch.command.at(0)) : programName);
    const std::string name = fs::path(program).filename().string().substr(0, 15); // as the kernel keeps it
    const auto namedChildren = [&name] {
        std::vector<pid_t> found;
        for (const ProcessLine &child : ReadChildren(getpid())) {
            if (child.name == name) found.push_back(child.process);
        }
        return found;
    };
    const std::vector<pid_t> before = namedChildren();
    DetachedDaemon daemon = {RunProgram(launch), 0};
    for (const pid_t process : namedChildren()) {
        if (std::find(before.begin(), before.end(), process) == before.end()) daemon.process = process;
    }
    return daemon;
}

pid_t StartServiceDaemon(Launch launch, int timeoutMs) {
    launch.command.insert(launch.command.begin(), ProgramPath("servd"));
    if (launch.directory.empty()) launch.directory = MakeScratchFolder();
    const pid_t process = StartDetached(launch).process;
    if (process == 0) Fail("servd left no daemon behind");
    const auto answers = [process] { return HasEnded(process) || WaitForProgram(SERVDAEMONPROG, SERVDAEMONVERS, 0); };
    if (!WaitUntil(answers, timeoutMs) || HasEnded(process)) Fail("servd does not answer");
    return process;
}

int StopDaemon(pid_t process, int signal, int timeoutMs) {
    if (kill(process, signal) != 0) FailSystem("kill");
    return WaitForEnd(process, timeoutMs);
}

bool IsRegistered(std::uint32_t program, std::uint32_t version) {
    const RpcClient portMapper(DialPortMapper({htonl(INADDR_LOOPBACK)}));
    if (!portMapper) Fail("the port mapper of this host does not answer");
    return PortOfProgram(portMapper.get(), program, version) != 0;
}

bool WaitForProgram(std::uint32_t program, std::uint32_t version, int timeoutMs) {
    const std::int64_t end = MonotonicMs() + timeoutMs;
    const auto answers = [&] {
        const RpcClient client(DialProgram({htonl(INADDR_LOOPBACK)}, program, version));
        if (!client) return false;
        // A daemon that is still starting accepts the connection long before it answers.
        const std::int64_t left = std::max<std::int64_t>(end - MonotonicMs(), 100);
        const timeval wait = {static_cast<time_t>(left / 1000), static_cast<suseconds_t>(left % 1000 * 1000)};
        Nothing nothing;
        return CallProcedure(client.get(), nothing, &nothing, wait) == RPC_SUCCESS;
    };
    return WaitUntil(answers, timeoutMs);
}

std::string HostName() {
    char name[256] = {};
    (void)gethostname(name, sizeof name - 1);
    return name;
}

// --- clients -------------------------------------------------------------------------------------------------------

static RpcClient Dial(std::uint32_t program, std::uint32_t version, const char *who) {
    RpcClient client(DialHost(HostName().c_str(), program, version));
    if (!client) Fail(std::string(who) + " cannot be reached");
    return client;
}

RpcClient DialServiceDaemon() { return Dial(SERVDAEMONPROG, SERVDAEMONVERS, "servd"); }
RpcClient DialRegistryDaemon() { return Dial(REGDAEMONPROG, REGDAEMONVERS, "the registry daemon"); }

void FailCall(std::uint32_t procedure, clnt_stat status) {
    Fail("procedure " + std::to_string(procedure) + ": " + clnt_sperrno(status));
}

// --- registry ------------------------------------------------------------------------------------------------------

const std::string servicesKey = servicesKeyPath;
const std::string groupOrderKey = groupOrderKeyPath;
const std::string groupTagsKey = tagOrderKeyPath;

void WriteKey(const std::string &key, const std::vector<RegistryValue> &values) {
    const OpenedKey opened = CreateKey(key);
    for (const RegistryValue &value : values) {
        regd_REG_SET_VALUE_EX argument = {};
        argument.key = opened.key;
        argument.valueName = Text(value.name.c_str());
        argument.type = value.type;
        argument.data = {static_cast<std::uint32_t>(value.data.size()), Text(value.data.data())};
        argument.dataBytes = argument.data.count;
        argument.nameIsNull = value.name.empty() ? 1 : 0;
        const auto result = CallRegistry(opened.client.get(), argument);
        Require(result.record.body.status, key + "\\" + value.name);
    }
}

std::optional<RegistryValue> ReadValue(const std::string &key, const std::string &name) {
    const OpenedKey opened = OpenKey(key);
    if (opened.status == ERROR_FILE_NOT_FOUND) return {};
    Require(opened.status, key);
    regd_REG_QUERY_VALUE_EX argument = {};
    argument.key = opened.key;
    argument.valueName = Text(name.c_str());
    argument.dataBytes = roomBytes;
    argument.nameIsNull = name.empty() ? 1 : 0;
    const auto result = CallRegistry(opened.client.get(), argument);
    if (result.record.body.status == ERROR_FILE_NOT_FOUND) return {};
    Require(result.record.body.status, key + "\\" + name);
    return RegistryValue{name, result.record.body.type, StringOf(result.record.body.data)};
}

std::vector<RegistryValue> ReadValues(const std::string &key) {
    const OpenedKey opened = OpenExistingKey(key);
    std::vector<RegistryValue> values;
    for (;;) {
        regd_REG_ENUM_VALUE argument = {};
        argument.key = opened.key;
        argument.index = static_cast<std::uint32_t>(values.size());
        argument.nameBytes = roomBytes;
        argument.dataBytes = roomBytes;
        const auto result = CallRegistry(opened.client.get(), argument);
        if (result.record.body.status == ERROR_NO_MORE_ITEMS) return values;
        Require(result.record.body.status, key);
        values.push_back({result.record.body.name, result.record.body.type, StringOf(result.record.body.data)});
    }
}

std::vector<std::string> ReadSubKeys(const std::string &key) {
    const OpenedKey opened = OpenExistingKey(key);
    std::vector<std::string> names;
    for (;;) {
        regd_REG_ENUM_KEY argument = {};
        argument.key = opened.key;
        argument.index = static_cast<std::uint32_t>(names.size());
        argument.nameBytes = roomBytes;
        const auto result = CallRegistry(opened.client.get(), argument);
        if (result.record.body.status == ERROR_NO_MORE_ITEMS) return names;
        Require(result.record.body.status, key);
        names.emplace_back(result.record.body.name);
    }
}

bool KeyExists(const std::string &key) {
    const OpenedKey opened = OpenKey(key);
    if (opened.status != ERROR_FILE_NOT_FOUND) Require(opened.status, key);
    return opened.status == ERROR_SUCCESS;
}

void DeleteKey(const std::string &key) {
    const RpcClient client = DialRegistryDaemon();
    regd_REG_DELETE_KEY argument = {};
    argument.key = HKEY_LOCAL_MACHINE;
    argument.subKey = Text(key.c_str());
    Require(CallRegistry(client.get(), argument).record.body.status, key);
}

void DeleteValue(const std::string &key, const std::string &name) {
    const OpenedKey opened = OpenExistingKey(key);
    regd_REG_DELETE_VALUE argument = {};
    argument.key = opened.key;
    argument.valueName = Text(name.c_str());
    argument.nameIsNull = name.empty() ? 1 : 0;
    const auto result = CallRegistry(opened.client.get(), argument);
    Require(result.record.body.status, key + "\\" + name);
}

void WriteService(const std::string &name, std::uint32_t startType, const std::string &imagePath,
                  const std::vector<RegistryValue> &further) {
    std::vector<RegistryValue> values = {
        {"Type", REG_DWORD, Dword(0x10)},      {"Start", REG_DWORD, Dword(startType)},
        {"ErrorControl", REG_DWORD, Dword(1)}, {"ImagePath", REG_SZ, Sz(imagePath)},
        {"DisplayName", REG_SZ, Sz(name)},
    };
    values.insert(values.end(), further.begin(), further.end());
    WriteKey(servicesKey + "\\" + name, values);
}

// --- files ---------------------------------------------------------------------------------------------------------

std::string MakeScratchFolder() {
    CleanUpAtExit();
    std::string folder = fs::temp_directory_path() / (std::string(scratchFolderPrefix) + "XXXXXX");
    if (mkdtemp(folder.data()) == nullptr) FailSystem(folder);
    const std::lock_guard<std::mutex> locked(scratchFolders);
    ScratchFolders().push_back(folder);
    return folder;
}

namespace {

std::string CopyInto(const std::string &folder, const fs::path &file) {
    std::string copy = folder + "/" + file.filename().string();
    fs::copy_file(file, copy);
    if (chmod(copy.c_str(), 0755) != 0) FailSystem(copy);
    return copy;
}

// The libraries of this program that come from elsewhere than the system's folders; the programs tested need no others.
std::vector<fs::path> OwnLibraries() {
    std::vector<fs::path> libraries;
    (void)dl_iterate_phdr(
        [](dl_phdr_info *object, std::size_t, void *found) {
            const std::string_view path = object->dlpi_name;
            if (path.starts_with('/') && !path.starts_with("/lib") && !path.starts_with("/usr/lib")) {
                static_cast<std::vector<fs::path> *>(found)->emplace_back(path);
            }
            return 0;
        },
        &libraries);
    return libraries;
}

} // namespace

std::string CopyForAnyUser(const std::string &program) {
    const std::string folder = MakeScratchFolder();
    if (chmod(folder.c_str(), 0755) != 0) FailSystem(folder);
    for (const fs::path &library : OwnLibraries()) {
        (void)CopyInto(folder, library);
    }
    return CopyInto(folder, program);
}

void WriteFile(const std::string &path, std::string_view content, mode_t mode) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file || chmod(path.c_str(), mode) != 0) FailSystem(path);
}

std::string ReadFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) FailSystem(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string ReadWhatIsThere(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf(); // swallows what the buffer throws when a read fails
    return content.str();
}
