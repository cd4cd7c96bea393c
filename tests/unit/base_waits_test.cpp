// SPDX-License-Identifier: MIT
// Handles, events, threads, processes and waiting for them. Where time matters, it is measured loosely: nothing comes
// early, and what is not held up comes within a minute.
#include "tests/support/win32_handle.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <thread>
#include <vector>

namespace {

constexpr DWORD aMinute = 60000;
constexpr DWORD aMoment = 30;

HANDLE ManualEvent(bool set = false) { return CreateEventA(nullptr, TRUE, set, nullptr); }
HANDLE AutoEvent(bool set = false) { return CreateEventA(nullptr, FALSE, set, nullptr); }

DWORD WaitFor(std::vector<HANDLE> handles, bool all, DWORD milliseconds) {
    return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), all, milliseconds);
}

bool IsSet(HANDLE handle) { return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0; }

struct Stopwatch {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    [[nodiscard]] DWORD Ms() const {
        const auto passed = std::chrono::steady_clock::now() - start;
        return static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(passed).count());
    }
};

// --- handles

TEST(CloseHandle, a_second_time_is_6_and_no_crash) {
    const HANDLE event = ManualEvent();
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_CODE(CloseHandle(event), ERROR_INVALID_HANDLE);
    EXPECT_CODE(SetEvent(event), ERROR_INVALID_HANDLE);
}

TEST(CloseHandle, what_is_no_handle_is_6) {
    int something = 0;
    for (HANDLE handle : {HANDLE{nullptr}, HANDLE{&something}, reinterpret_cast<HANDLE>(std::uintptr_t{0x7FFFFFF0})}) {
        EXPECT_CODE(CloseHandle(handle), ERROR_INVALID_HANDLE);
    }
}

TEST(CloseHandle, pseudo_handles_stay_open) {
    EXPECT_TRUE(CloseHandle(GetCurrentProcess()));
    EXPECT_TRUE(CloseHandle(GetCurrentThread()));
    EXPECT_EQ(WaitForSingleObject(GetCurrentProcess(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(GetCurrentThread(), 0), WAIT_TIMEOUT);
}

TEST(CloseHandle, a_handle_is_not_given_again) {
    const HANDLE first = ManualEvent();
    EXPECT_TRUE(CloseHandle(first));
    const Handle second(ManualEvent());
    EXPECT_NE(first, second.handle);
}

TEST(CloseHandle, an_event_that_is_waited_for_stays_until_the_wait_has_ended) {
    const HANDLE event = ManualEvent();
    std::thread other([&] { EXPECT_EQ(WaitForSingleObject(event, aMoment), WAIT_TIMEOUT); });
    Sleep(aMoment / 3);
    EXPECT_TRUE(CloseHandle(event));
    other.join();
}

TEST(Handles, many_threads_open_and_close_at_once) {
    std::vector<std::thread> threads;
    std::atomic<int> failures = 0;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500; ++round) {
                const HANDLE event = AutoEvent();
                if (!SetEvent(event) || !IsSet(event) || IsSet(event) || !CloseHandle(event)) ++failures;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
}

TEST(GetLastError, is_left_alone_by_a_success) {
    SetLastError(ERROR_DUP_NAME);
    const Handle event(OpenProcess(synchronizeForTests, FALSE, GetCurrentProcessId()));
    EXPECT_EQ(WaitForSingleObject(event.handle, 0), WAIT_TIMEOUT);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DUP_NAME});
}

TEST(GetLastError, is_each_thread_s_own) {
    SetLastError(ERROR_DUP_NAME);
    std::thread([] {
        EXPECT_EQ(GetLastError(), 0u);
        SetLastError(ERROR_INVALID_HANDLE);
    }).join();
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DUP_NAME});
}

// --- events

TEST(Event, of_manual_reset_stays_set) {
    const Handle event(ManualEvent());
    EXPECT_FALSE(IsSet(event.handle));
    EXPECT_TRUE(SetEvent(event.handle));
    EXPECT_TRUE(IsSet(event.handle));
    EXPECT_TRUE(IsSet(event.handle));
    EXPECT_TRUE(ResetEvent(event.handle));
    EXPECT_FALSE(IsSet(event.handle));
}

TEST(Event, of_automatic_reset_is_taken_by_one_wait) {
    const Handle event(AutoEvent(true));
    EXPECT_TRUE(IsSet(event.handle));
    EXPECT_FALSE(IsSet(event.handle));
    EXPECT_TRUE(SetEvent(event.handle));
    EXPECT_TRUE(SetEvent(event.handle)); // set twice is set once
    EXPECT_TRUE(IsSet(event.handle));
    EXPECT_FALSE(IsSet(event.handle));
}

TEST(Event, with_a_name_is_found_again_by_it) {
    const Handle event(CreateEventA(nullptr, TRUE, FALSE, "Global\\found"));
    EXPECT_EQ(GetLastError(), 0u);
    const Handle again(CreateEventA(nullptr, FALSE, TRUE, "Global\\found"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_NE(again.handle, event.handle);
    EXPECT_FALSE(IsSet(again.handle)); // as it was made
    const Handle opened(OpenEventW(EVENT_ALL_ACCESS, FALSE, Wide(u"Global\\found")));
    EXPECT_TRUE(SetEvent(opened.handle));
    EXPECT_TRUE(IsSet(event.handle));
    EXPECT_TRUE(IsSet(event.handle));
}

TEST(Event, loses_its_name_with_its_last_handle) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, Wide(u"lost \u00E4"));
    ASSERT_NE(event, nullptr);
    HANDLE opened = OpenEventA(EVENT_MODIFY_STATE, FALSE, "lost \xC3\xA4");
    ASSERT_NE(opened, nullptr);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_CODE(OpenEventA(EVENT_MODIFY_STATE, FALSE, "Lost \xC3\xA4") != nullptr, ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(CloseHandle(opened));
    EXPECT_CODE(OpenEventA(EVENT_MODIFY_STATE, FALSE, "lost \xC3\xA4") != nullptr, ERROR_FILE_NOT_FOUND);
}

TEST(Event, names_that_cannot_be) {
    EXPECT_CODE(OpenEventA(EVENT_MODIFY_STATE, FALSE, nullptr) != nullptr, ERROR_INVALID_PARAMETER);
    EXPECT_CODE(OpenEventW(EVENT_MODIFY_STATE, FALSE, nullptr) != nullptr, ERROR_INVALID_PARAMETER);
    EXPECT_CODE(OpenEventA(EVENT_MODIFY_STATE, FALSE, "") != nullptr, ERROR_FILE_NOT_FOUND);
    const WCHAR half[] = {0xD800, 0};
    EXPECT_CODE(CreateEventW(nullptr, TRUE, FALSE, half) != nullptr, ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_CODE(OpenEventW(EVENT_MODIFY_STATE, FALSE, half) != nullptr, ERROR_NO_UNICODE_TRANSLATION);
}

TEST(Event, with_an_empty_name_has_none) {
    const Handle one(CreateEventA(nullptr, TRUE, FALSE, ""));
    const Handle other(CreateEventA(nullptr, TRUE, TRUE, ""));
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_FALSE(IsSet(one.handle));
}

TEST(Event, is_what_SetEvent_and_ResetEvent_want) {
    EXPECT_CODE(SetEvent(GetCurrentProcess()), ERROR_INVALID_HANDLE);
    EXPECT_CODE(ResetEvent(nullptr), ERROR_INVALID_HANDLE);
    const Handle source(RegisterEventSourceA(nullptr, "test"), &DeregisterEventSource);
    EXPECT_CODE(SetEvent(source.handle), ERROR_INVALID_HANDLE);
}

// --- waiting

TEST(WaitForSingleObject, gives_up_when_its_time_has_passed) {
    const Handle event(ManualEvent());
    const Stopwatch watch;
    EXPECT_EQ(WaitForSingleObject(event.handle, aMoment), WAIT_TIMEOUT);
    EXPECT_GE(watch.Ms(), aMoment);
    EXPECT_LT(watch.Ms(), aMinute);
}

TEST(WaitForSingleObject, ends_as_soon_as_another_thread_sets_the_event) {
    for (const DWORD limit : {aMinute, DWORD{INFINITE}}) {
        const Handle event(ManualEvent());
        std::thread other([&] {
            Sleep(aMoment);
            EXPECT_TRUE(SetEvent(event.handle));
        });
        EXPECT_EQ(WaitForSingleObject(event.handle, limit), WAIT_OBJECT_0);
        other.join();
    }
}

TEST(WaitForSingleObject, of_what_cannot_be_waited_for_fails_with_6) {
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    SetLastError(0);
    const Handle source(RegisterEventSourceA(nullptr, "test"), &DeregisterEventSource);
    EXPECT_EQ(WaitForSingleObject(source.handle, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST(WaitForMultipleObjects, for_any_takes_the_lowest_that_is_set_and_no_other) {
    const Handle none(AutoEvent()), one(AutoEvent(true)), other(AutoEvent(true));
    EXPECT_EQ(WaitFor({none.handle, one.handle, other.handle}, false, 0), WAIT_OBJECT_0 + 1);
    EXPECT_FALSE(IsSet(one.handle));
    EXPECT_TRUE(IsSet(other.handle));
}

TEST(WaitForMultipleObjects, for_all_takes_nothing_before_all_are_set) {
    const Handle one(AutoEvent(true)), other(AutoEvent());
    EXPECT_EQ(WaitFor({one.handle, other.handle}, true, aMoment), WAIT_TIMEOUT);
    EXPECT_TRUE(IsSet(one.handle)); // was left
    EXPECT_TRUE(SetEvent(one.handle));
    std::thread setter([&] {
        Sleep(aMoment);
        EXPECT_TRUE(SetEvent(other.handle));
    });
    EXPECT_EQ(WaitFor({one.handle, other.handle}, true, aMinute), WAIT_OBJECT_0);
    setter.join();
    EXPECT_FALSE(IsSet(one.handle));
    EXPECT_FALSE(IsSet(other.handle));
}

TEST(WaitForMultipleObjects, counts_of_0_and_above_64_and_null_are_87) {
    std::vector<HANDLE> handles(MAXIMUM_WAIT_OBJECTS + 1);
    std::vector<std::unique_ptr<Handle>> events;
    for (HANDLE &handle : handles) {
        handle = events.emplace_back(std::make_unique<Handle>(ManualEvent(true)))->handle;
    }
    const auto wait = [&](DWORD count, const HANDLE *from) {
        SetLastError(0);
        return WaitForMultipleObjects(count, from, TRUE, 0) == WAIT_FAILED ? GetLastError() : 0;
    };
    EXPECT_EQ(wait(0, handles.data()), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(wait(1, nullptr), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(wait(MAXIMUM_WAIT_OBJECTS + 1, handles.data()), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(wait(MAXIMUM_WAIT_OBJECTS, handles.data()), 0u);
}

TEST(WaitForMultipleObjects, for_all_with_a_handle_twice_is_87_for_any_it_is_not) {
    const Handle event(ManualEvent(true));
    EXPECT_EQ(WaitFor({event.handle, event.handle}, true, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(WaitFor({event.handle, event.handle}, false, 0), WAIT_OBJECT_0);
}

TEST(WaitForMultipleObjects, one_bad_handle_fails_the_wait) {
    const Handle event(ManualEvent(true));
    EXPECT_EQ(WaitFor({event.handle, nullptr}, false, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

// Each signal of an event that resets itself ends one wait, however many threads want it.
TEST(WaitForMultipleObjects, no_signal_is_taken_twice_or_lost_among_threads) {
    constexpr int waits = 400;
    constexpr int threadCount = 4;
    const Handle wanted(AutoEvent()), unused(AutoEvent()), taken(AutoEvent());
    std::atomic<int> count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < waits / threadCount; ++round) {
                EXPECT_EQ(WaitFor({unused.handle, wanted.handle}, false, aMinute), WAIT_OBJECT_0 + 1);
                ++count;
                EXPECT_TRUE(SetEvent(taken.handle));
            }
        });
    }
    for (int i = 0; i < waits; ++i) {
        EXPECT_EQ(count, i);
        EXPECT_TRUE(SetEvent(wanted.handle));
        ASSERT_EQ(WaitForSingleObject(taken.handle, aMinute), WAIT_OBJECT_0);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, waits);
}

// --- threads

DWORD ReturnParameter(LPVOID parameter) { return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(parameter)); }

struct Started {
    HANDLE mayEnd = ManualEvent();
    DWORD id = 0;
    int unwound = 0;
};

DWORD WaitToEnd(LPVOID parameter) {
    auto *started = static_cast<Started *>(parameter);
    started->id = GetCurrentThreadId();
    EXPECT_EQ(WaitForSingleObject(started->mayEnd, aMinute), WAIT_OBJECT_0);
    return 7;
}

TEST(CreateThread, hands_over_parameter_and_exit_code) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    const Handle thread(CreateThread(nullptr, 0, ReturnParameter, reinterpret_cast<LPVOID>(0x12345), 0, nullptr));
    ASSERT_EQ(WaitForSingleObject(thread.handle, aMinute), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread.handle, &code));
    EXPECT_EQ(code, 0x12345u);
    EXPECT_EQ(WaitForSingleObject(thread.handle, 0), WAIT_OBJECT_0); // stays signalled
}

TEST(CreateThread, tells_the_id_and_is_still_active_until_it_ends) {
    Started started;
    DWORD id = 0, code = 0;
    const Handle thread(CreateThread(nullptr, 1 << 12, WaitToEnd, &started, 0, &id));
    EXPECT_EQ(WaitForSingleObject(thread.handle, aMoment), WAIT_TIMEOUT);
    EXPECT_TRUE(GetExitCodeThread(thread.handle, &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_TRUE(SetEvent(started.mayEnd));
    EXPECT_EQ(WaitForSingleObject(thread.handle, aMinute), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeThread(thread.handle, &code));
    EXPECT_EQ(code, 7u);
    EXPECT_EQ(id, started.id);
    EXPECT_NE(id, GetCurrentThreadId());
    EXPECT_TRUE(CloseHandle(started.mayEnd));
}

TEST(CreateThread, runs_on_when_its_handle_is_closed) {
    const Handle done(ManualEvent());
    const auto setDone = [](LPVOID parameter) -> DWORD { return SetEvent(parameter) ? 0 : 1; };
    EXPECT_TRUE(CloseHandle(CreateThread(nullptr, 0, setDone, done.handle, 0, nullptr)));
    EXPECT_EQ(WaitForSingleObject(done.handle, aMinute), WAIT_OBJECT_0);
}

TEST(CreateThread, has_the_stack_that_it_asked_for) {
    constexpr std::size_t large = 64 << 20;
    const auto useStack = [](LPVOID) -> DWORD {
        std::vector<char> zeroes(1);
        volatile char room[large - (1 << 20)];
        room[sizeof room - 1] = zeroes[0];
        room[0] = zeroes[0];
        return room[0] == 0 ? 1 : 0;
    };
    const Handle thread(CreateThread(nullptr, large, useStack, nullptr, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    EXPECT_EQ(WaitForSingleObject(thread.handle, aMinute), WAIT_OBJECT_0);
}

TEST(CreateThread, without_a_start_or_with_other_flags_is_87) {
    EXPECT_CODE(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr) != nullptr, ERROR_INVALID_PARAMETER);
    constexpr DWORD suspended = 4;
    EXPECT_CODE(CreateThread(nullptr, 0, ReturnParameter, nullptr, suspended, nullptr) != nullptr,
                ERROR_INVALID_PARAMETER);
}

TEST(CreateThread, without_room_for_its_stack_is_8) {
    constexpr std::size_t tooLarge = static_cast<std::size_t>(-1) / 8 * 7 & ~std::size_t{0xFFFF};
    EXPECT_CODE(CreateThread(nullptr, tooLarge, ReturnParameter, nullptr, 0, nullptr) != nullptr,
                ERROR_NOT_ENOUGH_MEMORY);
}

TEST(ExitThread, unwinds_the_stack_and_gives_the_exit_code) {
    struct Unwound {
        int *count;
        explicit Unwound(int *of) : count(of) {}
        Unwound(const Unwound &) = delete;
        Unwound &operator=(const Unwound &) = delete;
        ~Unwound() { ++*count; }
    };
    int unwound = 0;
    const auto exit = [](LPVOID parameter) -> DWORD {
        const Unwound here(static_cast<int *>(parameter));
        ExitThread(23);
    };
    const Handle thread(CreateThread(nullptr, 0, exit, &unwound, 0, nullptr));
    ASSERT_EQ(WaitForSingleObject(thread.handle, aMinute), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread.handle, &code));
    EXPECT_EQ(code, 23u);
    EXPECT_EQ(unwound, 1);
}

TEST(GetExitCodeThread, wants_a_thread_and_room) {
    DWORD code = 0;
    const Handle event(ManualEvent());
    EXPECT_CODE(GetExitCodeThread(event.handle, &code), ERROR_INVALID_HANDLE);
    EXPECT_CODE(GetExitCodeThread(GetCurrentThread(), nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(GetExitCodeThread(GetCurrentThread(), &code));
    EXPECT_EQ(code, STILL_ACTIVE);
}

TEST(WaitForMultipleObjects, threads_events_and_processes_in_one_wait) {
    Started started;
    const Handle thread(CreateThread(nullptr, 0, WaitToEnd, &started, 0, nullptr));
    const Handle process(OpenProcess(synchronizeForTests, FALSE, GetCurrentProcessId()));
    const Handle event(AutoEvent());
    const std::vector<HANDLE> handles = {process.handle, event.handle, thread.handle};
    EXPECT_EQ(WaitFor(handles, false, aMoment), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(event.handle));
    EXPECT_EQ(WaitFor(handles, false, aMinute), WAIT_OBJECT_0 + 1);
    EXPECT_TRUE(SetEvent(started.mayEnd));
    EXPECT_EQ(WaitFor(handles, false, aMinute), WAIT_OBJECT_0 + 2);
    EXPECT_TRUE(CloseHandle(started.mayEnd));
}

// --- processes

// A child that ends when it is told to.
struct Child {
    int ends[2] = {};
    pid_t id = 0;
    explicit Child(int code, int signal = 0) {
        EXPECT_EQ(pipe(ends), 0);
        id = fork();
        if (id != 0) return;
        char any = 0;
        (void)!read(ends[0], &any, 1);
        if (signal != 0) (void)raise(signal);
        _exit(code);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    void LetEnd() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    ~Child() {
        (void)waitpid(id, nullptr, 0);
        (void)close(ends[0]);
        (void)close(ends[1]);
    }
};

TEST(OpenProcess, a_wait_ends_with_the_process_and_leaves_its_end_to_waitpid) {
    const Child child(5);
    const Handle process(OpenProcess(synchronizeForTests, FALSE, static_cast<DWORD>(child.id)));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(process.handle, &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(WaitForSingleObject(process.handle, aMoment), WAIT_TIMEOUT);
    std::thread other([&] { EXPECT_EQ(WaitForSingleObject(process.handle, aMinute), WAIT_OBJECT_0); });
    child.LetEnd();
    EXPECT_EQ(WaitForSingleObject(process.handle, aMinute), WAIT_OBJECT_0);
    other.join();
    EXPECT_TRUE(GetExitCodeProcess(process.handle, &code));
    EXPECT_EQ(code, 5u);
    int status = 0;
    EXPECT_EQ(waitpid(child.id, &status, 0), child.id);
}

TEST(OpenProcess, a_process_that_a_signal_ended_has_128_and_the_signal) {
    const Child child(0, SIGKILL);
    const Handle process(OpenProcess(synchronizeForTests, FALSE, static_cast<DWORD>(child.id)));
    child.LetEnd();
    EXPECT_EQ(WaitForSingleObject(process.handle, INFINITE), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(process.handle, &code));
    EXPECT_EQ(code, 128u + SIGKILL);
}

TEST(OpenProcess, several_handles_of_one_process_and_some_closed_early) {
    const Child child(0);
    const Handle one(OpenProcess(synchronizeForTests, FALSE, static_cast<DWORD>(child.id)));
    const Handle other(OpenProcess(synchronizeForTests, FALSE, static_cast<DWORD>(child.id)));
    for (int round = 0; round < 20; ++round) {
        const HANDLE early = OpenProcess(synchronizeForTests, FALSE, static_cast<DWORD>(child.id));
        EXPECT_EQ(WaitForSingleObject(early, 1), WAIT_TIMEOUT);
        EXPECT_TRUE(CloseHandle(early));
    }
    child.LetEnd();
    EXPECT_EQ(WaitFor({one.handle, other.handle}, true, aMinute), WAIT_OBJECT_0);
}

// The child of a fork has the descriptor behind the handle, too, so that closing it here does not end the watch on it.
// The thread that watches heard of the end again and again.
TEST(OpenProcess, an_end_that_only_a_forked_child_has_a_handle_for_keeps_no_thread_busy) {
    const Child child(0);
    const HANDLE process = OpenProcess(synchronizeForTests, FALSE, static_cast<DWORD>(child.id));
    EXPECT_EQ(WaitForSingleObject(process, 1), WAIT_TIMEOUT);
    const Child holder(0);
    EXPECT_TRUE(CloseHandle(process));
    child.LetEnd();
    siginfo_t info = {};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(child.id), &info, WEXITED | WNOWAIT), 0);
    const std::clock_t before = std::clock();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 20);
    holder.LetEnd();
}

TEST(OpenProcess, of_another_s_child_is_waited_for_but_its_code_is_not_told) {
    int ids[2], ends[2];
    ASSERT_EQ(pipe(ids), 0);
    ASSERT_EQ(pipe(ends), 0);
    const pid_t between = fork();
    if (between == 0) {
        const pid_t grandchild = fork();
        if (grandchild == 0) {
            char any = 0;
            (void)!read(ends[0], &any, 1);
            _exit(5);
        }
        (void)!write(ids[1], &grandchild, sizeof grandchild);
        _exit(0);
    }
    pid_t grandchild = 0;
    ASSERT_EQ(read(ids[0], &grandchild, sizeof grandchild), static_cast<ssize_t>(sizeof grandchild));
    (void)waitpid(between, nullptr, 0);
    const Handle process(OpenProcess(synchronizeForTests, FALSE, static_cast<DWORD>(grandchild)));
    EXPECT_EQ(WaitForSingleObject(process.handle, 0), WAIT_TIMEOUT);
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_EQ(WaitForSingleObject(process.handle, aMinute), WAIT_OBJECT_0);
    DWORD code = 99;
    EXPECT_CODE(GetExitCodeProcess(process.handle, &code), ERROR_NOT_SUPPORTED);
    EXPECT_EQ(code, 0u);
    for (const int end : {ids[0], ids[1], ends[0], ends[1]}) {
        (void)close(end);
    }
}

TEST(OpenProcess, without_such_a_process_is_87) {
    EXPECT_CODE(OpenProcess(synchronizeForTests, FALSE, 0) != nullptr, ERROR_INVALID_PARAMETER);
    EXPECT_CODE(OpenProcess(synchronizeForTests, FALSE, 0x7FFFFFFF) != nullptr, ERROR_INVALID_PARAMETER);
}

TEST(GetExitCodeProcess, wants_a_process_and_room) {
    DWORD code = 0;
    const Handle event(ManualEvent());
    EXPECT_CODE(GetExitCodeProcess(event.handle, &code), ERROR_INVALID_HANDLE);
    EXPECT_CODE(GetExitCodeProcess(GetCurrentProcess(), nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(GetExitCodeProcess(GetCurrentProcess(), &code));
    EXPECT_EQ(code, STILL_ACTIVE);
}

// Starts a program and gives its end and exit code.
struct StartedProgram {
    PROCESS_INFORMATION information = {};
    explicit StartedProgram(std::string line, DWORD flags = 0, LPVOID environment = nullptr, LPCSTR folder = nullptr) {
        EXPECT_TRUE(CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, flags, environment, folder, nullptr,
                                   &information))
            << GetLastError();
    }
    StartedProgram(const StartedProgram &) = delete;
    StartedProgram &operator=(const StartedProgram &) = delete;
    ~StartedProgram() {
        EXPECT_TRUE(CloseHandle(information.hProcess));
        EXPECT_TRUE(CloseHandle(information.hThread));
    }
    [[nodiscard]] DWORD Code() const {
        EXPECT_EQ(WaitForSingleObject(information.hProcess, aMinute), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(information.hThread, aMinute), WAIT_OBJECT_0);
        DWORD code = STILL_ACTIVE;
        EXPECT_TRUE(GetExitCodeProcess(information.hProcess, &code));
        return code;
    }
};

TEST(CreateProcess, runs_a_line_and_gives_its_exit_code) {
    EXPECT_EQ(StartedProgram("sh -c \"exit 7\"").Code(), 7u);
    EXPECT_EQ(StartedProgram(R"("/bin/sh" -c "test \"a b\" = 'a b' && exit 3")").Code(), 3u);
    EXPECT_EQ(StartedProgram("sh -c \"kill -9 $$\"").Code(), 128u + SIGKILL);
}

TEST(CreateProcess, has_a_handle_that_is_waited_for_like_others) {
    const StartedProgram program("sleep 0.05");
    const Handle event(ManualEvent());
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(program.information.hProcess, &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(program.information.dwProcessId, program.information.dwThreadId);
    EXPECT_EQ(WaitFor({event.handle, program.information.hProcess}, false, aMinute), WAIT_OBJECT_0 + 1);
}

TEST(CreateProcess, has_the_folder_and_the_environment_that_it_is_given) {
    char block[] = "TV_ONE=1\0TV_TWO=2\0";
    EXPECT_EQ(StartedProgram("/bin/sh -c \"test $PWD$TV_ONE$TV_TWO = /usr12\"", 0, block, "/usr").Code(), 0u);
    EXPECT_EQ(StartedProgram("/bin/sh -c \"test -z $PATH || exit 5\"").Code(), 5u);
    WCHAR wide[] = {'T', 'V', '_', 'O', 'N', 'E', '=', 0xE4, 0, 0};
    EXPECT_EQ(StartedProgram("/bin/sh -c \"test $TV_ONE = \xC3\xA4\"", CREATE_UNICODE_ENVIRONMENT, wide).Code(), 0u);
}

TEST(CreateProcess, leads_a_process_group_when_it_is_told_to) {
    const std::string test = "sh -c \"test $(cut -d' ' -f5 /proc/$$/stat) = $$\"";
    EXPECT_EQ(StartedProgram(test).Code(), 1u);
    EXPECT_EQ(StartedProgram(test, CREATE_NEW_PROCESS_GROUP).Code(), 0u);
}

TEST(CreateProcess, leaves_no_zombie_when_its_handles_are_closed_early) {
    pid_t id = 0;
    {
        const StartedProgram program("sleep 0.02");
        id = static_cast<pid_t>(program.information.dwProcessId);
    }
    for (int i = 0; i < 1000 && kill(id, 0) == 0; ++i) {
        Sleep(10);
    }
    EXPECT_EQ(kill(id, 0), -1);
}

TEST(CreateProcess, a_program_by_name_beside_its_line) {
    PROCESS_INFORMATION information;
    ASSERT_TRUE(CreateProcessW(Wide(u"/bin/sh"), const_cast<LPWSTR>(Wide(u"any -c \"exit 4\"")), nullptr, nullptr,
                               FALSE, 0, nullptr, Wide(u"/"), nullptr, &information));
    const Handle process(information.hProcess), thread(information.hThread);
    EXPECT_EQ(WaitForSingleObject(process.handle, aMinute), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(process.handle, &code));
    EXPECT_EQ(code, 4u);
}

TEST(CreateProcess, what_cannot_be_started_says_why) {
    PROCESS_INFORMATION information;
    STARTUPINFOA startup = {};
    const auto create = [&](const char *program, std::string line, DWORD flags = 0, const char *folder = nullptr) {
        return CreateProcessA(program, line.empty() ? nullptr : line.data(), nullptr, nullptr, FALSE, flags, nullptr,
                              folder, &startup, &information);
    };
    EXPECT_CODE(create(nullptr, ""), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(create(nullptr, "  "), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(create(nullptr, "true", CREATE_SUSPENDED), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(create("/nowhere/true", ""), ERROR_FILE_NOT_FOUND);
    EXPECT_CODE(create("/etc", ""), ERROR_ACCESS_DENIED);
    EXPECT_CODE(create("/bin/true", "", 0, "/nowhere"), ERROR_FILE_NOT_FOUND);
    startup.dwFlags = STARTF_USESTDHANDLES;
    EXPECT_CODE(create("/bin/true", ""), ERROR_INVALID_PARAMETER);
}

TEST(TerminateProcess, ends_it_with_the_code_that_it_is_given) {
    const StartedProgram program("sleep 60");
    EXPECT_TRUE(TerminateProcess(program.information.hProcess, 42));
    EXPECT_EQ(program.Code(), 42u);
    EXPECT_CODE(TerminateProcess(program.information.hProcess, 43), ERROR_ACCESS_DENIED);
    EXPECT_CODE(TerminateProcess(nullptr, 1), ERROR_INVALID_HANDLE);
}

TEST(TerminateProcess, of_the_calling_process_ends_it_at_once) {
    const auto exit = [] {
        (void)atexit([] { (void)!write(STDERR_FILENO, "gone", 4); });
        (void)TerminateProcess(GetCurrentProcess(), 9);
    };
    EXPECT_EXIT(exit(), testing::ExitedWithCode(9), "^$");
}

TEST(ExitProcess, ends_with_the_low_eight_bits_and_a_failure_stays_one) {
    EXPECT_EXIT(ExitProcess(0), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(ExitProcess(3), testing::ExitedWithCode(3), "");
    EXPECT_EXIT(ExitProcess(1066), testing::ExitedWithCode(1066 & 0xFF), "");
    EXPECT_EXIT(ExitProcess(0x300), testing::ExitedWithCode(255), "");
}

TEST(ExitProcess, calls_what_atexit_was_told) {
    const auto exit = [] {
        (void)atexit([] { (void)!write(STDERR_FILENO, "gone", 4); });
        ExitProcess(0);
    };
    EXPECT_EXIT(exit(), testing::ExitedWithCode(0), "gone");
}

// --- critical sections

TEST(CriticalSection, its_owner_enters_again_and_nobody_else_does) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EnterCriticalSection(&section);
    const auto tryElsewhere = [&] {
        BOOL entered = FALSE;
        std::thread([&] {
            entered = TryEnterCriticalSection(&section);
            if (entered) LeaveCriticalSection(&section);
        }).join();
        return entered;
    };
    EXPECT_FALSE(tryElsewhere());
    LeaveCriticalSection(&section);
    EXPECT_FALSE(tryElsewhere());
    LeaveCriticalSection(&section);
    EXPECT_TRUE(tryElsewhere());
    DeleteCriticalSection(&section);
}

TEST(CriticalSection, keeps_threads_apart) {
    CRITICAL_SECTION section;
    ASSERT_TRUE(InitializeCriticalSectionAndSpinCount(&section, 4000));
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5000; ++round) {
                EnterCriticalSection(&section);
                ++count;
                LeaveCriticalSection(&section);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 20000);
    DeleteCriticalSection(&section);
}

// --- time

TEST(Sleep, takes_at_least_its_time) {
    const Stopwatch watch;
    const uint64_t before = GetTickCount64();
    Sleep(aMoment);
    Sleep(0);
    EXPECT_GE(watch.Ms(), aMoment);
    EXPECT_GE(GetTickCount64() - before, aMoment - 1);
    EXPECT_LT(watch.Ms(), aMinute);
}

TEST(Sleep, is_not_cut_short_by_a_signal) {
    struct sigaction ignored = {}, before = {};
    ignored.sa_handler = [](int) {};
    (void)sigaction(SIGUSR1, &ignored, &before);
    const pthread_t sleeper = pthread_self();
    const Stopwatch watch;
    std::thread other([sleeper] {
        for (int i = 0; i < 5; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            (void)pthread_kill(sleeper, SIGUSR1);
        }
    });
    Sleep(aMoment);
    EXPECT_GE(watch.Ms(), aMoment);
    other.join();
    (void)sigaction(SIGUSR1, &before, nullptr);
}

TEST(GetTickCount, is_the_low_half_of_the_long_one) {
    const uint64_t before = GetTickCount64();
    const DWORD ticks = GetTickCount();
    EXPECT_LE(static_cast<DWORD>(ticks - static_cast<DWORD>(before)), GetTickCount64() - before);
}

} // namespace
