// fork(): a child's alarms go out once through every manager it inherited, from its own send threads; the parent's
// queue stays the parent's; no library lock is inherited held. No log capture: its lock would be inherited too.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <thread>

#include "Generations.h"

// Under ThreadSanitizer: a child of a process with threads starts threads of its own here, which is the point.
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }

namespace {

using sdktest::Generation;
using sdktest::GenerationDriver;

// The child's exit status; -1 (after killing it) when it did not end within a minute.
int ExitOf(pid_t child) {
    int status = 0;
    const bool ended = testsupport::WaitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }, 60000);
    if (!ended) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class Fork : public ::testing::Test {
protected:
    void SetUp() override {
        const char* emulator = std::getenv("ALARMSDK_TEST_EMULATOR");
        if (emulator != nullptr && emulator[0] != '\0') {
            // qemu-user aborts such a child when it starts a thread ("cpu_exec: assertion failed").
            GTEST_SKIP() << "fork() with threads is not emulated";
        }
        agent_ = testsupport::StartedAgent();
        endpoint_ = std::make_unique<testsupport::ScopedEnv>("NODEWARD_ENDPOINT", agent_->endpoint().c_str());
    }
    testsupport::PauseRecorder pauses_;
    testsupport::ScopedEnv appId_{"APPID", "app-7"}, appName_{"APPNAME", "orders-app"};
    std::unique_ptr<nodeward::Sim> agent_;
    std::unique_ptr<testsupport::ScopedEnv> endpoint_;
    testsupport::LoopbackTransport transport_;  // where a child's check registration serves
    // Both generations and a co-process manager: started, sent seq, flushed (results as words).
    bool Init() {
        return current_.init() && legacy_.init() &&
               (handle_ = ZEBInitAlarmSDK4CoProcess("app-co", "svc-co", "10.0.0.1", "")) != nullptr;
    }
    bool SendAll(const std::string& seq) {
        return current_.send(seq) && legacy_.send(seq) && sdktest::SendVia(handle_, "7", seq) == 0;
    }
    std::string FlushAll() {
        return testsupport::Words(current_.flush(20000), legacy_.flush(20000), alarmsdk_flush(handle_, 20000));
    }
    GenerationDriver current_{Generation::Current}, legacy_{Generation::Legacy};
    AlarmManagerEx* handle_ = nullptr;
};

TEST_F(Fork, AChildDeliversItsOwnAlarmsThroughEveryManagerAndNeverItsParents) {
    pauses_.hold();  // the parent's send threads park in their first wait: its alarms are still queued at the fork
    ASSERT_TRUE(Init());
    ASSERT_TRUE(testsupport::WaitUntil([this] { return pauses_.count(1) >= 3; }, 10000));
    ASSERT_TRUE(SendAll("parent-0"));

    const pid_t child = fork();
    if (child == 0) {
        pauses_.release();
        int failures = !SendAll("child-0") + (FlushAll() != "0 0 0");
        // Counted from the child's own zero: the parent's queued alarm is not the child's.
        for (const alarmsdk_stats& s : {current_.stats(), legacy_.stats()}) {
            failures += !(s.accepted == 1 && s.delivered == 1 && s.waiting == 0);
        }
        _exit(failures);
    }
    ASSERT_GT(child, 0);
    EXPECT_EQ(0, ExitOf(child));
    pauses_.release();
    EXPECT_EQ("0 0 0", FlushAll());  // delivered
    // Each alarm once, by manager: the child's arrived first (the parent's threads were parked).
    std::set<std::string> first, then;
    std::string arrived;
    for (const nodeward::ReceivedAlarm& a : agent_->acceptedAlarms()) {
        const std::string word = (a.legacy ? std::string("legacy") : a.appId) + ":" + GenerationDriver::SeqOf(a);
        (first.size() < 3 ? first : then).insert(word);
        arrived += " " + word;
    }
    EXPECT_EQ((std::set<std::string>{"app-7:child-0", "legacy:child-0", "app-co:child-0"}), first) << arrived;
    EXPECT_EQ((std::set<std::string>{"app-7:parent-0", "legacy:parent-0", "app-co:parent-0"}), then) << arrived;
    EXPECT_EQ(6u, agent_->acceptedAlarms().size()) << arrived;
    const alarmsdk_stats parent = current_.stats();
    EXPECT_EQ("1 1 0", testsupport::Words(parent.accepted, parent.delivered, parent.waiting));
}

// Other threads send, flush and log without pause while the process forks again and again: each child's first calls
// return at once and its alarms are accepted.
TEST_F(Fork, NoLockIsInheritedHeld) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // The sanitizers' own allocators are not: a child forked while another thread allocates can inherit their
    // lock taken and hang in its first allocation, outside the library (seen with ASan).
    GTEST_SKIP() << "the sanitizer runtime's allocator is not fork-safe under allocating threads";
#endif
    ASSERT_TRUE(Init());
    std::atomic<bool> stop{false};
    std::vector<std::thread> busy;
    for (int t = 0; t < 3; ++t) {
        busy.emplace_back([&, t] {
            for (int i = 0; !stop.load(); ++i) {
                const std::string seq = std::to_string(i);
                (void)(t == 0   ? current_.send(seq)
                       : t == 1 ? legacy_.send(seq)
                                : sdktest::SendVia(handle_, "7", seq) == 0);
                (void)alarmsdk_flush(handle_, 0);
            }
        });
    }
    for (int round = 0; round < 20; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(SendAll("c") && ZEBRegisterAlarmCheckCallBackFun("orders", [](char*) {}) == 0 ? 0 : 1);
        }
        ASSERT_GT(child, 0);
        if (const int code = ExitOf(child); code != 0) {
            ADD_FAILURE() << "the child of round " << round
                          << (code < 0 ? " hung" : " ended with " + std::to_string(code));
            break;
        }
    }
    stop.store(true);
    for (std::thread& t : busy) {
        t.join();
    }
}

}  // namespace
