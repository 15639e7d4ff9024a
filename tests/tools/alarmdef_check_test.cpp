// The programs. alarmdef-check: one broken fixture per kind of finding, at its line; hostile files end quickly; its
// exit codes. alarm-send: its command line rules, and runs against an agent that accepts, refuses or is not there.
#include <fstream>
#include <map>

#include "../config/ConfigTestSupport.h"
#include "Agent.h"
#include "AlarmSendArgs.h"
#include "DefinitionCheck.h"
#include "ProgramRun.h"

using alarmdef::Finding;
using alarmdef::Severity;
using alarmsend::ParseSendArgs;
using alarmsend::SendOptions;

namespace {

// One definition with the same fields but the id; tail holds ToggleParams and Params.
std::string Definition(const std::string& id, const std::string& tail) {
    return "  <Alarm>\n    <AlarmID>" + id +
           "</AlarmID>\n    <AlarmType>1</AlarmType>\n    <ServiceType>storage</ServiceType>\n"
           "    <AlarmLevel>2</AlarmLevel>\n    <IsGlobal>0</IsGlobal>\n    <EventType>1</EventType>\n"
           "    <IsAutoClean>1</IsAutoClean>\n    <IsCheck>1</IsCheck>\n" +
           tail + "  </Alarm>\n";
}

// A clean file: every finding below comes from one edit of it. Lines 3 to 29
// are alarm 300001 (its parameters from line 14), 30 to 41 alarm 300002.
const std::string kXml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Alarms>\n" +
                         Definition("300001", R"(    <ToggleParams><TransientPeriod>30</TransientPeriod></ToggleParams>
    <Params>
      <Param>
        <ParamName>disk</ParamName>
        <ParamType>STRING</ParamType>
        <ParamLen>32</ParamLen>
        <ParamClass>0</ParamClass>
      </Param>
      <Param>
        <ParamName>state</ParamName>
        <ParamType>ENUM</ParamType>
        <ParamLen>1</ParamLen>
        <ParamClass>1</ParamClass>
        <ENUM><EnumType>State</EnumType>
          <Values><Value><Key>0</Key></Value></Values></ENUM>
      </Param>
    </Params>
)") + Definition("300002", "    <Params></Params>\n") +
                         "</Alarms>\n";
const char kLanguage[] =
    "300001_ALARMNAME=Disk\n300001_disk=Disk\n300001_state=State\n300001_State_0=ok\n"
    "300002_ALARMNAME=Other\n";

enum class Target { Xml, En, Zh };

struct Case {
    Target target;
    std::string from, to;  // from replaced once by to in the target file ("" appends to)
    Target reported;
    int line;
    Severity severity;
    const char* text;                  // part of the message
    std::string from2 = "", to2 = "";  // a second edit of the target, when one is not enough
};

const std::string kToggle = "    <ToggleParams><TransientPeriod>30</TransientPeriod></ToggleParams>\n";
const std::string kParams = "    <Params>\n      <Param>\n        <ParamName>disk";
constexpr Target Xml = Target::Xml, En = Target::En, Zh = Target::Zh;
constexpr Severity Err = Severity::Error, Warn = Severity::Warning;

// clang-format off
const Case kCases[] = {
    {Xml, "    <AlarmLevel>2</AlarmLevel>\n", "", Xml, 3, Err, "alarm 300001 has no <AlarmLevel>; the loader pairs the "
     "n-th <AlarmLevel> with the n-th definition, so alarm 300001 gets alarm 300002's, alarm 300002 gets none"},
    {Xml, kToggle + kParams, kParams, Xml, 3, Err, "<ToggleParams> in only some definitions, and not the first ones; "
     "the loader pairs the n-th <ToggleParams> with the n-th definition, so alarm 300001 gets alarm 300002's, alarm "
     "300002 gets none", "    <Params></Params>", kToggle + "    <Params></Params>"},
    {Xml, "300002</AlarmID>", "300001</AlarmID>", Xml, 31, Err,
     "alarm id 300001 is defined again: only the first definition (line 4)"},
    {Xml, "300002</AlarmID>", "1000000002</AlarmID>", Xml, 31, Err,
     "has 10 characters: the legacy C interface takes at most 9"},
    {Xml, "<AlarmType>1<", "<AlarmType>one<", Xml, 5, Err, "<AlarmType> 'one' is not a decimal number"},
    {Xml, "<ParamClass>0</ParamClass>", "<ParamClass>0</ParamClass><Note/>", Xml, 18, Warn,
     "unknown element <Note> in <Param> is ignored"},
    {Xml, "STRING", "String", Xml, 16, Err, "'String' is none of UINT, STRING, ENUM"},
    {Xml, "<ParamLen>1<", "<ParamLen>8<", Xml, 23, Err,
     "<ParamLen> 8 of parameter 'state' of alarm 300001 is none of 1, 2, 4, as a ENUM needs"},
    {Xml, "<ParamClass>0<", "<ParamClass>2<", Xml, 18, Err,
     "<ParamClass> 2 is neither 0 (location) nor 1 (appendInfo)"},
    {Xml, "STRING", "ENUM", Xml, 14, Err, "is an ENUM without <ENUM> or <Bit>"},
    {Xml, ">state<", ">disk<", Xml, 21, Err, "is named twice"},
    {Xml, ">State<", ">" + std::string(120, 'S') + "<", Xml, 26, Err,
     "characters (at most 126): the whole enumeration of parameter 'state' of alarm 300001 is dropped"},
    {Xml, ">storage<", ">" + std::string(64, 's') + "<", Xml, 6, Err,
     "<ServiceType> of 64 characters reaches the agent empty"},
    {Xml, "?>\n", "?><!DOCTYPE Alarms>\n", Xml, 1, Err, "DOCTYPE: the library's loader expands no entity"},
    {Xml, "?>\n", "?><!DOCTYPE Alarms [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>\n", Xml, 1, Err,
     "external entity x (file:///etc/passwd) is never read"},
    {Zh, "300002_ALARMNAME=Other\n", "", Xml, 31, Warn,
     "key 300002_ALARMNAME is missing from zh_CN/language.properties"},
    {En, "300001_disk=Disk\n", "", Xml, 15, Warn, "key 300001_disk is missing from en_US/language.properties"},
    {En, "=Disk\n300001_state", "=" + std::string(127, 'd') + "\n300001_state", En, 2, Warn,
     "text of 300001_disk is 127 bytes: stored empty (at most 126)"},
    {Zh, "=Disk\n", "=" + std::string(120, 'n') + "\n", Xml, 4, Warn, "alarm name of 134 bytes is cut to 126"},
    {Xml, ">disk<", ">" + std::string(127, 'd') + "<", Xml, 15, Err,
     "<ParamName> of 127 characters is stored empty (at most 126)"},
    {Zh, "=ok\n", "=" + std::string(128, 'o') + "\n", Zh, 4, Warn,
     "text of 300001_State_0 is 128 bytes: cut (at most 127)"},
    {En, "", "k=" + std::string(800, 'v') + "\n", En, 6, Warn,
     "line of 803 characters: the reader takes 769 at a time"},
    {En, "", "orphan\n", En, 6, Warn, "not a key=value line: the reader rejects it"},
    {Zh, "", std::string(128, 'k') + "=v\n", Zh, 6, Warn, "key of 128 characters (at most 127): line rejected"},
};
// clang-format on

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = from.empty() ? text.size() : text.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

TEST(DefinitionCheck, EachKindOfFindingIsReportedAtItsLine) {
    testsupport::ScopedEnv quiet("RUNLOG_FILE", "/dev/null");
    configtest::ConfigDir dir;
    const std::string files[] = {dir.xml(), dir.dir.path() + "/en_US/language.properties",
                                 dir.dir.path() + "/zh_CN/language.properties"};
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.text);
        const auto edited = [&c](Target target, const std::string& text) {
            return c.target == target ? Replaced(Replaced(text, c.from, c.to), c.from2, c.to2) : text;
        };
        dir.Write(edited(Target::Xml, kXml), edited(Target::En, kLanguage), edited(Target::Zh, kLanguage));
        const std::vector<Finding> findings = alarmdef::CheckDefinitionFile(dir.xml());
        EXPECT_TRUE(std::any_of(findings.begin(), findings.end(), [&](const Finding& f) {
            return f.file == files[static_cast<int>(c.reported)] && f.line == c.line && f.severity == c.severity &&
                   f.message.find(c.text) != std::string::npos;
        })) << alarmdef::FormatText(findings);
    }
}

// Each ends with errors, quickly and in little memory (the test's time limit
// stands guard), and never gets as far as the loader.
TEST(DefinitionCheck, HostileFilesAreRefusedInBoundedTimeAndMemory) {
    testsupport::ScopedEnv quiet("RUNLOG_FILE", "/dev/null");
    configtest::ConfigDir dir;
    std::string bomb = "<?xml version=\"1.0\"?>\n<!DOCTYPE a [<!ENTITY e0 \"lol\">";
    for (int i = 1; i < 10; ++i) {
        const std::string previous = "&e" + std::to_string(i - 1) + ";";
        bomb += "<!ENTITY e" + std::to_string(i) + " \"" + previous + previous + previous + previous + "\">";
    }
    std::string deep;
    for (int i = 0; i < 40; ++i) {
        deep = "<a>" + deep + "</a>";
    }
    alarmdef::CheckLimits few;
    few.outline.maxElements = 10;
    const std::string sparse = "sparse";  // 100 MB, refused by its size before a byte is read
    const struct {
        std::string xml;
        alarmdef::CheckLimits limits;
        const char* text;
    } files[] = {
        {bomb + "]>\n<a><b>&e9;</b></a>", {}, "entity expansions"},
        {std::string("\x00\xff\xfe garbage \x01", 13), {}, "fatal XML error"},
        {"<?xml version=\"1.0\"?>\n" + deep, {}, "nested deeper than 32"},
        {sparse, {}, "has 104857600 bytes: files over 4194304 bytes"},
        {kXml, few, "more than 10 elements"},
    };
    for (const auto& file : files) {
        dir.Write(file.xml == sparse ? kXml : file.xml, kLanguage, kLanguage);
        if (file.xml == sparse) {
            std::filesystem::resize_file(dir.xml(), 100u << 20);
        }
        const std::vector<Finding> findings = alarmdef::CheckDefinitionFile(dir.xml(), file.limits);
        EXPECT_NE(std::string::npos, alarmdef::FormatText(findings).find(file.text)) << alarmdef::FormatText(findings);
        EXPECT_EQ(3, alarmdef::ExitCodeOf(findings));
    }
}

TEST(DefinitionCheckProgram, ExitCodesTextAndJson) {
    testsupport::ScopedEnv quiet("RUNLOG_FILE", nullptr);  // the program silences the loader itself
    configtest::ConfigDir dir;
    struct Run {
        std::vector<std::string> args;
        std::string language;
        int exitCode;
        std::string out, err;  // the start of stdout, part of stderr
    };
    const std::string xml = dir.xml();
    // clang-format off
    const std::vector<Run> runs = {
        {{xml}, kLanguage, 0, "", ""},
        {{xml}, std::string(kLanguage) + "orphan\n", 1,
         dir.dir.path() + "/en_US/language.properties:6: warning: not a key=value line", ""},
        {{"--json", xml}, "300001_ALARMNAME=Disk\n", 1,
         "[{\"file\":\"" + xml + "\",\"line\":15,\"severity\":\"warning\",\"message\":\"key 300001_disk is missing",
         ""},
        {{dir.dir.path() + "/absent.xml"}, kLanguage, 3,
         dir.dir.path() + "/absent.xml: error: the definition file cannot be read", ""},
        {{"--yaml", xml}, kLanguage, 2, "", "alarmdef-check: unknown option --yaml\nUsage: alarmdef-check [--json]"},
        {{}, kLanguage, 2, "", "no FILE given"},
        {{"--help"}, kLanguage, 0, "Usage: alarmdef-check [--json] FILE", ""},
    };
    // clang-format on
    for (const Run& run : runs) {
        dir.Write(kXml, run.language, kLanguage);
        const testsupport::ProgramResult result = testsupport::RunProgram("alarmdef-check", run.args, 60000);
        EXPECT_EQ(run.exitCode, result.exitCode) << result.out << result.err;
        EXPECT_EQ(0u, result.out.find(run.out)) << result.out;
        EXPECT_NE(std::string::npos, result.err.find(run.err)) << result.err;
        EXPECT_EQ(run.err.empty(), result.err.empty()) << result.err;
    }
}

TEST(AlarmSendArgs, OptionsAndAnAlarmWithEnvironmentDefaults) {
    SendOptions o;
    std::string error;
    ASSERT_TRUE(ParseSendArgs({"--service", "orders", "--timeout=100", "--time", "1700000000123", "--stats", "clear",
                               "300012", "disk=sda", "note=a=b"},
                              "env-id", "env-name", &o, &error))
        << error;
    EXPECT_EQ("env-id env-name orders 100 1700000000123 300012",
              testsupport::Words(o.appId, o.appName, o.service, o.timeoutMs, o.timeMs, o.alarm.alarmId));
    EXPECT_TRUE(o.printStats && o.alarm.clear);
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"disk", "sda"}, {"note", "a=b"}}), o.alarm.params);
    ASSERT_TRUE(ParseSendArgs({"--app-id", "a", "--legacy", "--definitions", "d.xml", "-"}, nullptr, "n", &o, &error));
    EXPECT_TRUE(o.fromStdin && o.legacy);
    EXPECT_EQ("a", o.appId);
    // Options after the words, as in GNU programs; after "--" everything is a word.
    ASSERT_TRUE(
        ParseSendArgs({"raise", "300012", "disk=sda", "--timeout", "2", "--", "--time=1"}, "i", "n", &o, &error))
        << error;
    EXPECT_EQ("2 300012 disk=sda --time=1",
              testsupport::Words(o.timeoutMs, o.alarm.alarmId, o.alarm.params[0].first + "=" + o.alarm.params[0].second,
                                 o.alarm.params[1].first + "=" + o.alarm.params[1].second));
    EXPECT_EQ(0, o.timeMs);
}

TEST(AlarmSendArgs, EveryBadArgumentIsRefusedWithItsReason) {
    const std::string longValue = "a=" + std::string(128, 'v');
    const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
        {{"raise"}, "raise needs an alarm id"},
        {{"shout", "1"}, "expected raise or clear"},
        {{}, "expected raise or clear"},
        {{"raise", "1234567890"}, "'1234567890' is not 1 to 9 decimal digits"},
        {{"raise", "12a"}, "is not 1 to 9 decimal digits"},
        {{"raise", "1", "disk"}, "'disk' is not NAME=VALUE"},
        {{"raise", "1", "=x"}, "'=x' is not NAME=VALUE"},
        {{"raise", "1", "a=1", "a=2"}, "parameter a is given twice"},
        {{"raise", "1", longValue}, "at most 127 characters"},
        {{"--bogus", "raise", "1"}, "unknown option --bogus"},
        {{"raise", "1", "-t", "2"}, "unknown option -t"},
        {{"raise", "1", "--timeout"}, "--timeout needs a value"},
        {{"--service"}, "--service needs a value"},
        {{"--stats=1", "raise", "1"}, "--stats takes no value"},
        {{"--timeout", "-1", "raise", "1"}, "--timeout takes milliseconds"},
        {{"--time", "999999999", "raise", "1"}, "--time takes milliseconds since the epoch"},
        {{"--legacy", "raise", "1", "a=1"}, "--legacy needs --definitions FILE"},
        {{"--legacy", "--definitions", "d.xml", "raise", "1"}, "a legacy alarm carries at least one parameter"},
        {{"--legacy", "--definitions", "d.xml", "--service", "s", "raise", "1", "a=1"}, "not --legacy"},
        {{"--definitions", "d.xml", "raise", "1"}, "--definitions belongs to --legacy"},
        {{"--label", "l", "raise", "1"}, "--label needs --service"},
        {{"--agent", "127.0.0.1:0", "raise", "1"}, "--agent 127.0.0.1:0: port 0 is no agent's port"},
        {{"--app-id", "", "raise", "1"}, "no application id: set APPID or --app-id"},
    };
    for (const auto& c : bad) {
        SendOptions o;
        std::string error;
        EXPECT_FALSE(ParseSendArgs(c.first, "id", "name", &o, &error)) << c.second;
        EXPECT_NE(std::string::npos, error.find(c.second)) << error;
    }
}

enum class Agent { Accepting, Refusing, Down };

struct SendRun {
    const char* name;
    std::vector<std::string> args;
    std::string input;  // standard input
    Agent agent;
    int exitCode;
    const char* err;  // part of the one line on stderr ("" when none)
    // What the agent must have received, checked when set.
    std::function<void(const nodeward::Sim&, const testsupport::ProgramResult&)> check = nullptr;
};

std::string SeqLines(int count) {
    std::string lines;
    for (int i = 0; i < count; ++i) {
        lines += "raise 5 seq=" + std::to_string(i) + "\n";
    }
    return lines;
}

const std::string kDefinitions = ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml";

// clang-format off
const SendRun kRuns[] = {
    {"Delivered", {"--service", "orders", "--stats", "raise", "300012", "disk=sda", "usage=95"}, "",
     Agent::Accepting, 0, "",
     [](const nodeward::Sim& agent, const testsupport::ProgramResult& result) {
         ASSERT_EQ(1u, agent.acceptedAlarms().size());
         const nodeward::ReceivedAlarm a = agent.acceptedAlarms()[0];
         std::map<std::string, std::string> params(a.parameters.begin(), a.parameters.end());
         EXPECT_EQ("300012 1 app-7 orders sda 95",
                   testsupport::Words(a.alarmId, a.alarmType, a.appId, a.serviceName, params["disk"], params["usage"]));
         EXPECT_EQ(0u, result.out.find("accepted=1 refused=0 delivered=1 batches=1 retried=0 dropped=0 waiting=0 "
                                       "last_delivery_ms=1")) << result.out;
     }},
    // The shipped example definitions, their language files included, as the agent receives them.
    {"LegacyDelivered", {"--legacy", "--definitions", kDefinitions, "clear", "300002", "interface=eth1", "reason=1"},
     "", Agent::Accepting, 0, "",
     [](const nodeward::Sim& agent, const testsupport::ProgramResult&) {
         ASSERT_EQ(1u, agent.acceptedAlarms().size());
         const nodeward::ReceivedAlarm a = agent.acceptedAlarms()[0];
         EXPECT_EQ("1 2 network|EN:Network link down##ZH:网络链路中断##|EN:Interface=eth1##ZH:接口=eth1##|"
                   "EN:Reason=Peer shut down##ZH:原因=对端关闭##", testsupport::Words(a.legacy, a.alarmType,
                   a.serviceName) + "|" + a.alarmName + "|" + a.location + "|" + a.appendInfo);
     }},
    {"BadArguments", {"raise"}, "", Agent::Accepting, 2, "alarm-send: raise needs an alarm id\nUsage: alarm-send"},
    {"BadInputLineAfterAGoodOne", {"-"}, "raise 5 a=1\n\n# note\nbogus 5\n",
     Agent::Accepting, 2, "alarm-send: line 4: expected raise or clear",
     [](const nodeward::Sim& agent, const testsupport::ProgramResult&) {
         EXPECT_EQ(1u, agent.acceptedAlarms().size()) << "what was sent before is still delivered";
     }},
    {"DefinitionsUnreadable", {"--legacy", "--definitions", "/nonexistent/a.xml", "raise", "1", "a=1"}, "",
     Agent::Accepting, 2, "alarm-send: cannot read /nonexistent/a.xml"},
    {"NotDefined", {"--legacy", "--definitions", kDefinitions, "raise", "999", "a=1"}, "", Agent::Accepting, 1,
     "alarm-send: 1 of 1 alarms refused: not defined in"},
    {"QueueFull", {"--timeout", "0", "-"}, SeqLines(1100), Agent::Down, 3, "alarms refused: the queue was full"},
    {"NotDeliveredInTime", {"--timeout", "300", "raise", "5"}, "", Agent::Refusing, 4,
     "alarm-send: not delivered within 300 ms: 1 waiting, 0 dropped"},
};
// clang-format on

TEST(AlarmSendProgram, EachRunExitsWithItsCodeAndOneLine) {
    testsupport::ScopedEnv appId("APPID", "app-7"), appName("APPNAME", "orders-app"), log("RUNLOG_FILE", nullptr);
    testsupport::TempDir dir;
    for (const SendRun& run : kRuns) {
        SCOPED_TRACE(run.name);
        const auto agent = testsupport::StartedAgent();
        agent->failNext(run.agent == Agent::Refusing ? 1000000 : 0, nodeward::FailMode::RetCode);
        const std::string nobody = "127.0.0.1:" + std::to_string(testsupport::FreeLoopbackPort());
        testsupport::ScopedEnv endpoint("NODEWARD_ENDPOINT",
                                        run.agent == Agent::Down ? nobody.c_str() : agent->endpoint().c_str());
        const std::string input = dir.path() + "/input";
        std::ofstream(input) << run.input;
        const testsupport::ProgramResult result = testsupport::RunProgram("alarm-send", run.args, 60000, input);
        EXPECT_EQ(run.exitCode, result.exitCode) << result.err;
        EXPECT_NE(std::string::npos, result.err.find(run.err)) << result.err;
        const std::string err = run.err;  // one line, and the usage line after bad arguments
        EXPECT_EQ(err.empty() ? 0 : 1 + std::count(err.begin(), err.end(), '\n'),
                  std::count(result.err.begin(), result.err.end(), '\n'))
            << result.err;
        if (run.check) {
            run.check(*agent, result);
        }
    }
}

}  // namespace
