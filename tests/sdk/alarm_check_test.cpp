// The agent's alarm checks: answered at once, handed in order to the named service's callback on the library's thread.
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "RestCall.h"
#include "SdkTestSupport.h"

namespace {

const std::string kAnswer = std::string("eyJyZXRDb2RlIjogIjAiLCJyZXREZXNjIjogInN1Y2Nlc3MifQ==") + '\0';

// What the callbacks received ("who text") and on which thread; never destroyed, the callback thread outlives the test.
std::mutex& g_mutex = *new std::mutex();
std::vector<std::pair<std::string, pthread_t>>& g_delivered = *new std::vector<std::pair<std::string, pthread_t>>();

void Record(const char* who, char* text) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_delivered.emplace_back(std::string(who) + " " + text, pthread_self());
}
void OrdersCallback(char* text) { Record("orders", text); }
void BillingCallback(char* text) { Record("billing", text); }
void TakeoverCallback(char* text) { Record("takeover", text); }
// Every delivered check, separated by "|", once n arrived.
std::string Delivered(std::size_t n) {
    const bool arrived = testsupport::WaitUntil(
        [n] {
            std::lock_guard<std::mutex> lock(g_mutex);
            return g_delivered.size() >= n;
        },
        30000);
    std::lock_guard<std::mutex> lock(g_mutex);
    std::string all;
    for (const auto& [text, thread] : g_delivered) {
        all += (all.empty() ? "" : "|") + text;
        EXPECT_TRUE(pthread_equal(thread, AlarmManagerEx::alarmCheckThread())) << "not on the alarm-check thread";
    }
    return arrived ? all : "only " + all;
}

// The agent's own encoder: the library's decoder is checked against another's output.
std::string CheckDocument(const std::string& service, const std::string& alarmsJson) {
    return nodeward::EncodeBase64("{\"callBackInfo\":{\"serviceName\":\"" + service +
                                  "\"},\"callBackAlarms\":" + alarmsJson + "}");
}

class AlarmCheck : public sdktest::AgentTest {
protected:
    void SetUp() override { ASSERT_EQ(0, ZEBInitAlarmSDK()); }
    testsupport::RestAnswer Post(const std::string& body, const std::string& service = "orders",
                                 int method = REST_REQUEST_POST) {
        return testsupport::RestCall(
            "http://127.0.0.1:" + transport_.portText + "/" + service + "/app-7/alarmCheck/callBack", body, method);
    }
    int Check(const std::string& alarms, const std::string& service = "orders") {
        return Post(CheckDocument(service, alarms), service).status;
    }

    testsupport::LoopbackTransport transport_;
};

// The agent calls back a service it heard from: on its first alarm when told to, on request, by its control resource.
TEST_F(AlarmCheck, TheAgentCallsBackTheServiceItHeardFrom) {
    ASSERT_TRUE(StartAgent([](nodeward::SimOptions& o) {
        o.callBackOnFirstAlarm = {{"orders", "[\"first\"]"}, {"billing", "[]"}};
    }));
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", &OrdersCallback));
    const std::string control = "http://127.0.0.1:" + std::to_string(agent_->port()) + "/sim/callback";
    std::string answer;
    EXPECT_EQ(-1, agent_->callBack("orders", "[]", &answer));  // nothing heard from it yet
    EXPECT_EQ(404, testsupport::RestCall(control + "?service=orders", "[0]").status);
    ASSERT_EQ(0, sdktest::SendSeq("1", "x"));  // carries the service's name, address and port
    ASSERT_EQ("orders [\"first\"]", Delivered(1));
    ASSERT_EQ(0, sdktest::SendSeq("1", "y"));
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(2, 10000));
    EXPECT_EQ(200, agent_->callBack("orders", "{\"a\": 1}", &answer));
    EXPECT_EQ(kAnswer, answer);
    EXPECT_EQ(-1, agent_->callBack("orders", "not json", &answer));
    const testsupport::RestAnswer relayed = testsupport::RestCall(control + "?service=orders", "[2]");
    EXPECT_EQ("200 " + kAnswer, testsupport::Words(relayed.status, relayed.body));
    EXPECT_EQ(400, testsupport::RestCall(control, "[]").status);
    EXPECT_EQ("orders [\"first\"]|orders {\"a\":1}|orders [2]", Delivered(3));
}

// Every check is answered at once (405 unless posted, 500 when undecodable or empty, else the fixed answer), then
// dropped with its reason or delivered compact.
TEST_F(AlarmCheck, ChecksAreAnsweredAtOnceThenDroppedWithTheirReasonOrDeliveredAsCompactText) {
    pauses_.wakeOnWork(60000);  // with a minute-long tick, only each check itself wakes the thread
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", &OrdersCallback));
    EXPECT_TRUE(
        log_.contains("RegResource success,iret=0, url=/orders/app-7/alarmCheck/callBack, serviceName=orders", 2));
    for (int method : {REST_REQUEST_GET, REST_REQUEST_PUT, REST_REQUEST_DELETE}) {
        EXPECT_EQ(405, Post(CheckDocument("orders", "1"), "orders", method).status) << method;
    }
    EXPECT_FALSE(log_.contains("AlarmManagerEx::ProcessAlarmCheckInterface,func in."));
    const std::string good = CheckDocument("orders", "1");
    const std::string noAlarms = "{\"callBackInfo\":{\"serviceName\":\"orders\"}}";
    const auto encode = nodeward::EncodeBase64;
    const std::pair<std::string, std::string> dropped[] = {
        {good.substr(0, good.size() - 1), "decode request body error"},
        {"ab-d" + good, "decode request body error"},
        {std::string("\0AAA", 4), "AlarmCheck response body is NULL"},
        {"", "AlarmManagerEx::ProcessAlarmCheckInterface,request body is empty."},
        {CheckDocument("nobody", "[]"), "There is no service nobody"},
        {encode(noAlarms), "Get empty call back info, callBackInfo is " + noAlarms},
        {encode("this is not json"), "The response body convert to json failed."},
        {encode("{\"callBackAlarms\":[]}"), "In AlarmManagerEx::GetCallBackInstance, pJsonCallBackInfo is null!"},
        {encode("{\"callBackInfo\":{\"serviceName\":7},\"callBackAlarms\":[]}"),
         "In AlarmManagerEx::GetCallBackInstance, pJsonServiceName is null!"},
    };
    for (std::size_t i = 0; i < std::size(dropped); ++i) {
        const testsupport::RestAnswer answer = Post(dropped[i].first);
        EXPECT_EQ(i < 4 ? "500  " : "200 text/plain " + kAnswer,
                  testsupport::Words(answer.status, answer.contentType, answer.body))
            << dropped[i].first;
    }
    const std::pair<const char*, const char*> checks[] = {{"[ {\"alarmId\" : \"1\"} ]", "[{\"alarmId\":\"1\"}]"},
                                                          {"{\"a\": [1, 2], \"b\": null}", "{\"a\":[1,2],\"b\":null}"},
                                                          {"\"just text\"", "\"just text\""}};
    std::string delivered;
    for (std::size_t i = 0; i < std::size(checks); ++i) {
        ASSERT_EQ(200, Post(CheckDocument("orders", checks[i].first)).status);
        delivered += (i > 0 ? "|orders " : "orders ") + std::string(checks[i].second);
        ASSERT_EQ(delivered, Delivered(i + 1));
    }
    // Once a later check is in, the earlier ones were handled.
    for (const auto& row : dropped) {
        EXPECT_TRUE(log_.contains(row.second)) << row.second;
    }
    EXPECT_EQ(3u, log_.count("Can not find the AlarmManager Instance point.", 5));
    EXPECT_TRUE(log_.contains("In AlarmManagerEx::GetAlarmCheckInfo, pJsonCheckInfo is null!", 5));
    EXPECT_EQ(0u, AlarmManagerEx::pendingAlarmCheckCount());
}

TEST_F(AlarmCheck, RegistrationRules) {
    // An empty name counts as success, registers nothing and clears the name stored before.
    ASSERT_EQ(0, ZEBRegisterRsetClearInfo("orders", "svc-1", "inst-1", 0));
    EXPECT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("", &OrdersCallback));
    EXPECT_EQ("", AlarmManagerEx::getInstance()->getServiceName());
    EXPECT_TRUE(log_.contains("AlarmManagerEx::ResitAlarmCheckInterface szServiceName Is empty", 5));
    EXPECT_EQ(nullptr, AlarmManagerEx::getInstance()->getAlarmCheckCallBack());
    EXPECT_EQ(1u, log_.count("AlarmManagerEx::ResitAlarmCheckInterface Alarm Check Thread start success", 2));
    // A second manager registering the same name takes over its checks.
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", &OrdersCallback));
    AlarmManagerEx* other = ZEBInitAlarmSDK4CoProcess("app-7", "orders", "10.0.0.1", "127.0.0.1");
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun4CoProcess(other, &TakeoverCallback));
    EXPECT_EQ(1u, log_.count("AlarmManagerEx::ResitAlarmCheckInterface Start to init alarm check.", 2));
    ASSERT_EQ(200, Check("1"));
    EXPECT_EQ("takeover 1", Delivered(1));
}

TEST(AlarmCheckRegistration, FiveFailedAttemptsReturnTheLastResultAndLeaveNoCallback) {
    testsupport::PauseRecorder pauses;
    testsupport::LogCapture log;
    testsupport::ScopedEnv noIp("TRANSPORT_SDK_IP", nullptr), noPort("TRANSPORT_SDK_PORT", nullptr);
    AlarmManagerEx* manager = AlarmManagerEx::getInstance();
    const int result = manager->RegAlarmCheckInterface("orders", &OrdersCallback);
    EXPECT_NE(0, result);
    EXPECT_GE(pauses.count(1), 5u) << "one pause before each failure line";
    EXPECT_EQ(5u, log.count("RegResource failed,iret=" + std::to_string(result) + ", url=/orders//alarmCheck/callBack",
                            5, "../src/AlarmManagerEx"));
    EXPECT_EQ(nullptr, manager->getAlarmCheckCallBack());
    EXPECT_EQ("orders", manager->getServiceName());
}

TEST_F(AlarmCheck, NamesNoRequestCouldReachAreRefused) {
    for (const std::string& name :
         std::vector<std::string>{"a?b", "a#b", "a b", "a%41", "a/b", "..", "\xe5\x90\x8d", std::string(1100, 'n')}) {
        EXPECT_EQ(-1, ZEBRegisterAlarmCheckCallBackFun(name.c_str(), &OrdersCallback)) << name;
        EXPECT_TRUE(log_.contains("AlarmManagerEx::ResitAlarmCheckInterface serviceName " + name +
                                      " with appId app-7 cannot be reached in a URL path, refused",
                                  5));
    }
    EXPECT_EQ(nullptr, AlarmManagerEx::getInstance()->getAlarmCheckCallBack());
    // Every character a client sends unchanged is accepted, and the path is served.
    const std::string verbatim = "Svc-1._~!$&'()*+,;=:@";
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun(verbatim.c_str(), &OrdersCallback));
    Check("1", verbatim);
    EXPECT_EQ("orders 1", Delivered(1));
}

// Holds the alarm-check thread in its first callback until the gate opens.
std::atomic<bool> g_gateOpen{false};
std::atomic<int> g_gated{0};
void GatedCallback(char* text) {
    ++g_gated;
    (void)testsupport::WaitUntil([] { return g_gateOpen.load(); }, 30000);
    Record("orders", text);
}

// Checks with a text of `payload` bytes each, how many are posted, how many fit.
class AlarmCheckFlood : public AlarmCheck, public ::testing::WithParamInterface<std::tuple<std::size_t, int, int>> {};

TEST_P(AlarmCheckFlood, ChecksBeyondTheBoundAreRefusedAndNoQueuedOneIsLost) {
    const auto [payload, posts, fitting] = GetParam();
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", &GatedCallback));
    ASSERT_EQ(200, Check("\"gate\""));
    ASSERT_TRUE(testsupport::WaitUntil([] { return g_gated.load() == 1; }, 10000));
    std::string accepted = "orders \"gate\"";
    for (int i = 0; i < posts; ++i) {
        const std::string text = "\"" + std::to_string(i) + std::string(payload, 'p') + "\"";
        const int status = Check(text);
        EXPECT_EQ(i < fitting ? 200 : 500, status) << "post " << i;
        accepted += status == 200 ? "|orders " + text : "";
    }
    EXPECT_NE(std::string::npos, log_.dump().find(", alarm check queue is full ("));
    g_gateOpen = true;
    EXPECT_EQ(accepted, Delivered(std::count(accepted.begin(), accepted.end(), '|') + 1));
}

INSTANTIATE_TEST_SUITE_P(ByCountAndBytes, AlarmCheckFlood,
                         ::testing::Values(std::make_tuple(std::size_t{1}, 276, 256),
                                           std::make_tuple(std::size_t{700 * 1024}, 4, 2)));

// Racing registrations start one check thread: every manager's checks run on it, one at a time, in arrival order.
TEST_F(AlarmCheck, ConcurrentRegistrationsStartOneThreadThatServesEveryManagerInOrder) {
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", &OrdersCallback));
    std::atomic<bool> go{false};
    std::atomic<int> registered{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        AlarmManagerEx* m = ZEBInitAlarmSDK4CoProcess("app-7", ("svc" + std::to_string(i)).c_str(), "n", "127.0.0.1");
        threads.emplace_back([m, &go, &registered] {
            while (!go.load()) {
            }
            registered += ZEBRegisterAlarmCheckCallBackFun4CoProcess(m, &BillingCallback) == 0 ? 1 : 0;
        });
    }
    go = true;
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(8, registered.load());
    EXPECT_EQ(1u, log_.count("AlarmManagerEx::ResitAlarmCheckInterface Alarm Check Thread start success", 2));
    std::string expected;
    for (int i = 0; i < 16; ++i) {
        ASSERT_EQ(200, Check(std::to_string(i), i % 3 == 0 ? "orders" : "svc" + std::to_string(i % 8)));
        expected += (i > 0 ? "|" : "") + std::string(i % 3 == 0 ? "orders " : "billing ") + std::to_string(i);
    }
    EXPECT_EQ(expected, Delivered(16));
}

// A stranger's process holding `count` half-sent requests from 127.0.0.2 until the returned socket closes (or -1).
int StartIdleAttacker(int port, int count) {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) {
        return -1;
    }
    if (fork() == 0) {  // only async-signal-safe calls: the parent has threads
        close(pair[0]);
        static const char kHalf[] = "POST /orders/app-7/alarmCheck/callBack HTTP/1.1\r\nContent-Length: 99\r\n\r\neyJ";
        for (int i = 0; i < count; ++i) {
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in addr{AF_INET, 0, {htonl(0x7f000002)}, {}};
            bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
            addr = sockaddr_in{AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
            if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) {
                (void)!write(fd, kHalf, sizeof(kHalf) - 1);
            }
        }
        char c;
        (void)!write(pair[1], "r", 1);
        (void)!read(pair[1], &c, 1);  // until the parent closes its end
        _exit(0);
    }
    close(pair[1]);
    char c;
    return read(pair[0], &c, 1) == 1 ? pair[0] : -1;
}

TEST_F(AlarmCheck, ElevenHundredIdleConnectionsStopNeitherDeliveryNorChecks) {
    ASSERT_TRUE(StartAgent());
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", &OrdersCallback));
    const int attacker = StartIdleAttacker(transport_.port, 1100);
    ASSERT_GE(attacker, 0);
    rlimit limit{};  // the service's usual descriptor budget
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, 1024);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(0, sdktest::SendSeq("7", std::to_string(i)));
    }
    EXPECT_TRUE(agent_->waitForAcceptedAlarms(20, 30000));
    EXPECT_LT(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}), 256);
    EXPECT_EQ(200, Check("\"valid\""));
    EXPECT_EQ("orders \"valid\"", Delivered(1));
    close(attacker);
    wait(nullptr);
}

}  // namespace
