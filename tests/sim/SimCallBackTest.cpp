// Alarm checks sent to a service: a small MHD server here plays the service.
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <microhttpd.h>

#include <cstring>
#include <mutex>
#include <thread>

#include "SimTestHelpers.h"
#include "TestEnv.h"

using namespace simtest;
using nodeward::Sim;

namespace {

// What the library answers: 52 base64 characters and a terminating zero.
const std::string kServiceAnswer = std::string("eyJyZXRDb2RlIjogIjAiLCJyZXREZXNjIjogInN1Y2Nlc3MifQ==") + '\0';

class FakeService {
public:
    FakeService() {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        daemon_ = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD, 0, nullptr, nullptr, &FakeService::Handle, this,
                                   MHD_OPTION_SOCK_ADDR, &addr, MHD_OPTION_NOTIFY_COMPLETED, &FakeService::Done,
                                   this, MHD_OPTION_END);
        if (daemon_ != nullptr) {
            port_ = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
        }
    }
    ~FakeService() {
        if (daemon_ != nullptr) {
            MHD_stop_daemon(daemon_);
        }
    }
    int port() const { return port_; }
    std::vector<std::pair<std::string, std::string>> received() const {  // path, body
        std::lock_guard<std::mutex> lock(mu_);
        return received_;
    }

private:
    static MHD_Result Handle(void* cls, MHD_Connection* connection, const char* url, const char*, const char*,
                             const char* data, size_t* size, void** context) {
        auto* self = static_cast<FakeService*>(cls);
        if (*context == nullptr) {
            *context = new std::string();
            return MHD_YES;
        }
        auto* body = static_cast<std::string*>(*context);
        if (*size != 0) {
            body->append(data, *size);
            *size = 0;
            return MHD_YES;
        }
        {
            std::lock_guard<std::mutex> lock(self->mu_);
            self->received_.emplace_back(url, *body);
        }
        MHD_Response* response = MHD_create_response_from_buffer(
            kServiceAnswer.size(), const_cast<char*>(kServiceAnswer.data()), MHD_RESPMEM_MUST_COPY);
        const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, response);
        MHD_destroy_response(response);
        return result;
    }
    static void Done(void*, MHD_Connection*, void** context, MHD_RequestTerminationCode) {
        delete static_cast<std::string*>(*context);
        *context = nullptr;
    }

    MHD_Daemon* daemon_ = nullptr;
    int port_ = 0;
    mutable std::mutex mu_;
    std::vector<std::pair<std::string, std::string>> received_;
};

TEST(SimCallBack, CheckIsPostedBase64OnTheServicePath) {
    FakeService service;
    ASSERT_GT(service.port(), 0);
    Sim sim(Loopback());
    std::string answer;
    EXPECT_EQ(sim.callBackTo("127.0.0.1", service.port(), "orders", "app-7", "[{\"alarmId\": \"1\"}]", &answer), 200);
    EXPECT_EQ(answer, kServiceAnswer);
    const auto received = service.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].first, "/orders/app-7/alarmCheck/callBack");
    EXPECT_EQ(Decode(received[0].second),
              "{\"callBackInfo\":{\"serviceName\":\"orders\"},\"callBackAlarms\":[{\"alarmId\":\"1\"}]}");
}

TEST(SimCallBack, RefusesInvalidJsonAndReportsUnreachableServices) {
    FakeService service;
    std::string error;
    EXPECT_EQ(nodeward::PostAlarmCheck("127.0.0.1", service.port(), "orders", "app-7", "{oops", nullptr, &error), -1);
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(service.received().empty());

    const int closedPort = testsupport::FreeLoopbackPort();
    error.clear();
    EXPECT_EQ(nodeward::PostAlarmCheck("127.0.0.1", closedPort, "orders", "app-7", "[]", nullptr, &error), -1);
    EXPECT_NE(error.find("/orders/app-7/alarmCheck/callBack"), std::string::npos) << error;
}

TEST(SimCallBack, AddressIsLearntFromTheLatestAlarmOfTheService) {
    FakeService service;
    Sim sim(Loopback());
    ASSERT_TRUE(sim.start(nullptr));
    std::string answer;
    EXPECT_EQ(sim.callBack("orders", "[]", &answer), -1);  // nothing learnt yet

    const int stalePort = testsupport::FreeLoopbackPort();
    Post(PushUrl(sim), Encode(CurrentDocument(CurrentAlarm("1", 1, "orders", stalePort, "app-1"))));
    Post(PushUrl(sim), Encode(CurrentDocument(CurrentAlarm("2", 1, "orders", service.port(), "app-9"))));
    Post(PushUrl(sim), Encode(CurrentDocument(CurrentAlarm("3", 1, "billing", stalePort))));

    EXPECT_EQ(sim.callBack("orders", "{\"alarmId\":\"2\"}", &answer), 200);
    EXPECT_EQ(answer, kServiceAnswer);
    EXPECT_EQ(sim.callBack("orders", "not json", &answer), -1);
    const auto received = service.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].first, "/orders/app-9/alarmCheck/callBack");
}

TEST(SimCallBack, ControlResourceRelaysTheServiceAnswer) {
    FakeService service;
    Sim sim(Loopback());
    ASSERT_TRUE(sim.start(nullptr));
    const std::string control = "http://127.0.0.1:" + std::to_string(sim.port()) + "/sim/callback";
    EXPECT_EQ(Post(control, "[]").status, 400);                 // no service named
    EXPECT_EQ(Post(control + "?service=orders", "[]").status, 404);  // not heard of yet

    Post(PushUrl(sim), Encode(CurrentDocument(CurrentAlarm("1", 1, "orders", service.port()))));
    const HttpResult relayed = Post(control + "?service=orders", "[1,2]");
    EXPECT_EQ(relayed.status, 200);
    EXPECT_EQ(relayed.body, kServiceAnswer);
    const auto received = service.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(Decode(received[0].second), "{\"callBackInfo\":{\"serviceName\":\"orders\"},\"callBackAlarms\":[1,2]}");
}

TEST(SimCallBack, FirstAlarmOfAServiceTriggersOneCheck) {
    FakeService service;
    nodeward::SimOptions options = Loopback();
    options.callBackOnFirstAlarm = {{"orders", "[\"check\"]"}};
    Sim sim(options);
    ASSERT_TRUE(sim.start(nullptr));
    Post(PushUrl(sim), Encode(CurrentDocument(CurrentAlarm("9", 1, "billing", service.port()))));
    for (int i = 0; i < 3; ++i) {
        Post(PushUrl(sim), Encode(CurrentDocument(CurrentAlarm("1", 1, "orders", service.port()))));
    }
    ASSERT_TRUE(testsupport::WaitUntil([&] { return !service.received().empty(); }, 5000));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // room for a wrong second check
    const auto received = service.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].first, "/orders/app-7/alarmCheck/callBack");
    EXPECT_EQ(Decode(received[0].second), "{\"callBackInfo\":{\"serviceName\":\"orders\"},\"callBackAlarms\":[\"check\"]}");
}

}  // namespace
