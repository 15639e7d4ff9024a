// Fault injection: each failure mode as a service's agent client sees it.
#include <gtest/gtest.h>

#include <algorithm>

#include "SimTestHelpers.h"

using namespace simtest;
using nodeward::FailMode;
using nodeward::Sim;

namespace {

const std::string kCurrent = Encode(CurrentDocument(CurrentAlarm("300012", 1)));
const std::string kLegacy = Encode(LegacyDocument(LegacyAlarm("1001", 0)));

TEST(SimFault, FailFirstAnswersRetCodeOneThenSucceeds) {
    nodeward::SimOptions options = Loopback();
    options.failFirst = 2;
    Sim sim(options);
    ASSERT_TRUE(sim.start(nullptr));
    // Refused bodies do not use up the planned failures.
    EXPECT_EQ(Post(PushUrl(sim), "bad!").status, 400);
    for (int i = 0; i < 2; ++i) {
        const HttpResult failed = Post(PushUrl(sim), kCurrent);
        EXPECT_EQ(failed.status, 200);
        EXPECT_EQ(Decode(failed.body), "{\"retCode\":1}");
    }
    EXPECT_EQ(Decode(Post(PushUrl(sim), kCurrent).body), "{\"retCode\":0}");

    sim.failNext(1, FailMode::RetCode);
    EXPECT_EQ(Decode(Post(PushUrl(sim), kLegacy).body), "{\"returncode\":\"Failed\"}");
    EXPECT_EQ(Decode(Post(PushUrl(sim), kLegacy).body), "{\"returncode\":\"OK\"}");

    const auto requests = sim.requests();
    ASSERT_EQ(requests.size(), 6u);
    const std::vector<bool> accepted = {false, false, false, true, false, true};
    for (std::size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(requests[i].accepted, accepted[i]) << "request " << i + 1;
    }
    EXPECT_EQ(requests[1].alarms.size(), 1u);  // failed requests still show what was sent
    EXPECT_EQ(sim.acceptedAlarms().size(), 2u);
}

TEST(SimFault, EmptyGarbageAndCloseModes) {
    Sim sim(Loopback());
    ASSERT_TRUE(sim.start(nullptr));

    sim.failNext(1, FailMode::Empty);
    HttpResult answer = Post(PushUrl(sim), kCurrent);
    EXPECT_EQ(answer.code, CURLE_OK);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "");

    sim.failNext(1, FailMode::Garbage);
    answer = Post(PushUrl(sim), kCurrent);
    EXPECT_EQ(answer.status, 200);
    std::string decoded;
    EXPECT_FALSE(nodeward::DecodeBase64(answer.body, &decoded)) << answer.body;

    sim.failNext(1, FailMode::Close);
    answer = Post(PushUrl(sim), kCurrent);
    EXPECT_NE(answer.code, CURLE_OK);
    EXPECT_EQ(answer.status, 0);

    answer = Post(PushUrl(sim), kCurrent);
    EXPECT_EQ(Decode(answer.body), "{\"retCode\":0}");
    const auto requests = sim.requests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_FALSE(requests[0].accepted);
    EXPECT_FALSE(requests[1].accepted);
    EXPECT_FALSE(requests[2].accepted);
    EXPECT_TRUE(requests[3].accepted);
}

TEST(SimFault, StatusAppliesToSuccessAnswersOnly) {
    nodeward::SimOptions options = Loopback();
    options.status = 503;
    Sim sim(options);
    ASSERT_TRUE(sim.start(nullptr));
    const HttpResult ok = Post(PushUrl(sim), kCurrent);
    EXPECT_EQ(ok.status, 503);
    EXPECT_EQ(Decode(ok.body), "{\"retCode\":0}");
    EXPECT_EQ(Post(PushUrl(sim), "====").status, 400);
    sim.failNext(1, FailMode::RetCode);
    EXPECT_EQ(Post(PushUrl(sim), kCurrent).status, 200);
    // The services decide by the document, so a 503 carrying retCode 0 is accepted.
    EXPECT_EQ(sim.acceptedAlarms().size(), 1u);
}

std::vector<bool> AcceptedPattern(unsigned int seed, int count) {
    nodeward::SimOptions options = Loopback();
    options.failRatio = 0.5;
    options.seed = seed;
    Sim sim(options);
    EXPECT_TRUE(sim.start(nullptr));
    for (int i = 0; i < count; ++i) {
        Post(PushUrl(sim), kCurrent);
    }
    std::vector<bool> pattern;
    for (const auto& request : sim.requests()) {
        pattern.push_back(request.accepted);
    }
    return pattern;
}

TEST(SimFault, FailRatioIsRepeatableForASeed) {
    const std::vector<bool> first = AcceptedPattern(7, 24);
    const std::vector<bool> again = AcceptedPattern(7, 24);
    ASSERT_EQ(first.size(), 24u);
    EXPECT_EQ(first, again);
    const auto accepted = std::count(first.begin(), first.end(), true);
    EXPECT_GT(accepted, 3);
    EXPECT_LT(accepted, 21);
}

}  // namespace
