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

TEST(SimFault, EachModeAnswersAsPlannedAndOnlySuccessIsAccepted) {
    nodeward::SimOptions options = Loopback();
    options.failFirst = 1;
    options.status = 503;  // for success answers only
    Sim sim(options);
    ASSERT_TRUE(sim.start(nullptr));
    const struct {
        int failNext;  // 0: none planned beyond failFirst
        FailMode mode;
        std::string body;
        long status;   // 0: no answer at all
        std::string answer;  // decoded, or raw when it is no base64
    } rows[] = {
        {0, FailMode::RetCode, "bad!", 400, "{\"retCode\":1,\"retDesc\":\"byte 0x21 at offset 3 is not base64\"}"},
        {0, FailMode::RetCode, kCurrent, 200, "{\"retCode\":1}"},  // refused bodies do not use up failFirst
        {0, FailMode::RetCode, kCurrent, 503, "{\"retCode\":0}"},
        {1, FailMode::RetCode, kLegacy, 200, "{\"returncode\":\"Failed\"}"},
        {0, FailMode::RetCode, kLegacy, 503, "{\"returncode\":\"OK\"}"},
        {1, FailMode::Empty, kCurrent, 200, ""},
        {1, FailMode::Garbage, kCurrent, 200, "%%%%"},
        {1, FailMode::Close, kCurrent, 0, ""},
    };
    std::vector<bool> expected;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.body);
        if (row.failNext > 0) {
            sim.failNext(row.failNext, row.mode);
        }
        const HttpResult answer = Post(PushUrl(sim), row.body);
        EXPECT_EQ(row.status, answer.status);
        std::string decoded;
        EXPECT_EQ(row.answer, nodeward::DecodeBase64(answer.body, &decoded) ? decoded : answer.body);
        expected.push_back(row.status == 503);
    }
    const auto requests = sim.requests();
    ASSERT_EQ(requests.size(), expected.size());
    for (std::size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(expected[i], requests[i].accepted) << "request " << i + 1;
    }
    EXPECT_EQ(requests[1].alarms.size(), 1u);  // failed requests still show what was sent
    EXPECT_EQ(sim.acceptedAlarms().size(), 2u);
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
    ASSERT_EQ(first.size(), 24u);
    EXPECT_EQ(first, AcceptedPattern(7, 24));
    const auto accepted = std::count(first.begin(), first.end(), true);
    EXPECT_GT(accepted, 3);
    EXPECT_LT(accepted, 21);
}

}  // namespace
