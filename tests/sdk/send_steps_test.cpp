// The send thread's steps (take a batch, build the request, judge the answer) run one at a time for each generation,
// and the queue's bounds.
#include <cjson/cJSON.h>

#include <cstdlib>

#include "AlarmAdapter.h"
#include "AlarmManager.h"
#include "Generations.h"

using sdktest::Generation;

namespace {

// A response record as the REST client hands it over (freed by the reader), its body the base64 of answer.
stru_REST_RESPONSE* Answer(const char* answer, int status) {
    if (answer == nullptr) {
        return nullptr;
    }
    auto* response = static_cast<stru_REST_RESPONSE*>(std::calloc(1, sizeof(stru_REST_RESPONSE)));
    const std::string body = nodeward::EncodeBase64(answer);
    response->status = status;
    response->body = strdup(body.c_str());
    response->bodyLen = body.size();
    response->header = zeb_restHeadContentCreate();
    return response;
}

// One item through Manager's steps: "<built> <request decodes to the document> <settled> <items left> <pauses>".
template <typename Item, typename Manager, typename FreeEncoded, typename DeleteBatch>
std::string Steps(Manager& manager, const char* answer, int status, FreeEncoded freeEncoded, DeleteBatch deleteBatch) {
    testsupport::PauseRecorder pauses;
    std::list<Item*> batch;
    manager.getSendAlarmDatas(batch);
    char* body = nullptr;
    char* encoded = nullptr;
    int encodedLength = 0;
    const int built = manager.getSendAlarmJsonData(batch, body, encoded, encodedLength);
    std::string decoded;
    const bool decodes = built == 0 && nodeward::DecodeBase64(encoded, &decoded) && decoded == body &&
                         encodedLength == 0;  // the encoder's result
    cJSON_free(body);
    freeEncoded(encoded);
    const int settled = processRestResponse(batch, Answer(answer, status));
    const std::string result = testsupport::Words(built, decodes, settled, batch.size(), pauses.count(3));
    deleteBatch(batch);
    return result;
}

struct StepCase {
    const char* name;
    Generation generation;
    const char* answer;  // decoded; nullptr: no answer at all
    const char* steps;
    int status = 200;  // the status alone does not decide
};

class SendSteps : public ::testing::TestWithParam<StepCase> {};

TEST_P(SendSteps, EachGenerationBuildsItsRequestAndSettlesOnlyOnItsOwnOk) {
    const StepCase& c = GetParam();
    testsupport::LogCapture log;
    testsupport::ScopedEnv appId("APPID", "app-7");  // the legacy document names the application from it
    const sdktest::GenerationDriver driver(c.generation);
    std::string steps;
    if (c.generation == Generation::Current) {
        AlarmManagerEx manager(0);
        AlarmEx alarm("1", ZEB_ALARM_GENERATE);
        ASSERT_EQ(0, manager.sendAlarm(&alarm));
        steps = Steps<AlarmEx>(
            manager, c.answer, c.status, [](char* text) { delete[] text; }, deleteAlarms);
        char *body = nullptr, *encoded = nullptr;
        int length = 0;
        EXPECT_EQ(-1, manager.getSendAlarmJsonData({}, body, encoded, length)) << "an empty batch is not built";
    } else {
        AlarmManager& manager = *AlarmManager::GetInstance();
        ASSERT_EQ(0, manager.RegisterRsetClear());
        steps = Steps<_AlarmModel>(
            manager, c.answer, c.status, [](char* text) { std::free(text); }, deleteAlarmModels);
    }
    EXPECT_EQ(c.steps, steps);
    const bool accepted = std::string(c.steps).find(" 1 0 0") != std::string::npos;
    EXPECT_EQ(accepted ? 1u : 0u, log.count(driver.successText(), driver.successLevel(), driver.logSource()));
    EXPECT_EQ(c.status != 200 ? 1u : 0u,
              log.count("Nodeward response retCode is " + std::to_string(c.status) + " ", 5));
}

INSTANTIATE_TEST_SUITE_P(
    Answers, SendSteps,
    ::testing::Values(StepCase{"CurrentOk", Generation::Current, "{\"retCode\":0}", "0 1 1 0 0"},
                      StepCase{"CurrentRefused", Generation::Current, "{\"retCode\":1}", "0 1 -1 1 1"},
                      StepCase{"CurrentReadsRetCode", Generation::Current, "{\"returncode\":\"OK\"}", "0 1 -1 1 1"},
                      StepCase{"CurrentNoAnswer", Generation::Current, nullptr, "0 1 -1 1 1"},
                      StepCase{"CurrentOkWithStatus500", Generation::Current, "{\"retCode\":0}", "0 1 1 0 0", 500},
                      StepCase{"LegacyOk", Generation::Legacy, "{\"returncode\":\"OK\"}", "0 1 1 0 0"},
                      StepCase{"LegacyReadsReturncode", Generation::Legacy, "{\"retCode\":0}", "0 1 -1 1 1"},
                      StepCase{"LegacyEmptyAnswer", Generation::Legacy, "", "0 1 -1 1 1"}),
    [](const ::testing::TestParamInfo<StepCase>& info) { return std::string(info.param.name); });

// A script of pushes (+text), takes of a batch (<) and pops (-) on a queue of 3 items, 10 bytes and batches of 2,
// and what each step gives: "ok", the refusal "<items> <bytes held> <bytes refused>", or the texts taken.
TEST(AlarmQueueLimits, CountAndBytesAreBoundedUnderTheLockAndATakeGivesItsBytesBack) {
    testsupport::LogCapture log;
    // clang-format off
    alarmsdk::AlarmQueue<std::string> queue({.logSource = "test", .capacity = 3, .batch = 2, .byteBound = 10,
                                             .bytesOf = [](const std::string& text) { return text.size(); },
                                             .refusal = "refused %zu %zu %zu"});
    const std::pair<const char*, const char*> script[] = {
        {"+aaaa", "ok"}, {"+bbbbbb", "ok"}, {"+c", "refused 2 10 1"}, {"+", "ok"}, {"+", "refused 3 10 0"},
        {"<", "aaaa bbbbbb"}, {"+0123456789", "ok"}, {"-", ""}, {"-", "0123456789"}, {"-", "<none>"},
        {"+0123456789a", "refused 0 0 11"}, {"+0123456789", "ok"}, {"<", "0123456789"}};
    // clang-format on
    for (const auto& [step, expected] : script) {
        std::string got;
        if (step[0] == '+') {
            log.clear();
            got = queue.pushWithinLimits(std::make_unique<std::string>(step + 1)) ? "ok" : "";
            for (const testsupport::LogLine& line : log.lines()) {
                got += line.level == 5 && line.source == "test" ? line.text : "elsewhere: " + line.text;
            }
        } else if (step[0] == '-') {
            const std::unique_ptr<std::string> item = queue.pop();
            got = item != nullptr ? *item : "<none>";
        } else {
            std::list<std::string*> batch;
            queue.takeBatch(batch);
            for (std::string* item : batch) {
                got += (got.empty() ? "" : " ") + *item;
                delete item;
            }
        }
        EXPECT_EQ(expected, got) << step;
    }
    EXPECT_EQ(0u, queue.size());
}

}  // namespace
