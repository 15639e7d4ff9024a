// Loading the legacy alarm definitions: a generated file of N alarms with 5
// parameters each (one of them an enumeration) and matching language files.
// Baseline in the same run: merely parsing the same file with the same
// parser configuration, so the figures read as ratios.
#include <benchmark/benchmark.h>

#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "AlarmConfig.h"
#include "runlog_testing.h"

namespace {

constexpr int kParamsPerAlarm = 5;

// The files for n alarms under a fresh temporary directory; the path of
// the definition file.
std::string WriteDefinitions(int n) {
    const std::string dir = std::filesystem::temp_directory_path() / ("alarmsdk-bench-" + std::to_string(n));
    std::filesystem::create_directories(dir + "/en_US");
    std::filesystem::create_directories(dir + "/zh_CN");
    std::ofstream xml(dir + "/alarms.xml");
    std::ofstream en(dir + "/en_US/language.properties");
    std::ofstream zh(dir + "/zh_CN/language.properties");
    xml << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Alarms>\n";
    for (int i = 0; i < n; ++i) {
        const std::string id = std::to_string(100000 + i);
        xml << "<Alarm><AlarmID>" << id << "</AlarmID><AlarmType>1</AlarmType><ServiceType>svc" << i % 7
            << "</ServiceType><AlarmLevel>2</AlarmLevel><IsGlobal>0</IsGlobal><EventType>1</EventType>"
               "<IsAutoClean>1</IsAutoClean><IsCheck>0</IsCheck><Params>\n";
        en << id << "_ALARMNAME=Alarm number " << i << "\n";
        zh << id << "_ALARMNAME=告警 " << i << "\n";
        for (int p = 0; p < kParamsPerAlarm; ++p) {
            const bool isEnum = p == kParamsPerAlarm - 1;
            xml << "<Param><ParamName>param" << p << "</ParamName><ParamType>" << (isEnum ? "ENUM" : "UINT")
                << "</ParamType><ParamLen>4</ParamLen><ParamClass>" << p % 2 << "</ParamClass>";
            if (isEnum) {
                xml << "<ENUM><EnumType>State</EnumType><Values><Value><Key>0</Key></Value>"
                       "<Value><Key>1</Key></Value></Values></ENUM>";
                en << id << "_State_0=Off\n" << id << "_State_1=On\n";
                zh << id << "_State_0=关\n" << id << "_State_1=开\n";
            }
            xml << "</Param>\n";
            en << id << "_param" << p << "=Parameter " << p << "\n";
            zh << id << "_param" << p << "=参数 " << p << "\n";
        }
        xml << "</Params></Alarm>\n";
    }
    xml << "</Alarms>\n";
    return dir + "/alarms.xml";
}

// Every load logs a line per alarm; keep them off the terminal. Setting the
// run-log's clock makes it take the variable at the next line.
void QuietLog() {
    setenv("RUNLOG_FILE", "/dev/null", 1);
    Runlog_SetClock(nullptr);
}

void BM_LoadDefinitions(benchmark::State& state) {
    QuietLog();
    std::string path = WriteDefinitions(static_cast<int>(state.range(0)));
    ALM_SetConfFilePath(&path[0]);
    for (auto _ : state) {
        ALM_FreeConfInfo();
        ALM_ConfInit();
        benchmark::DoNotOptimize(g_stCfgParaInfo.head);
    }
    if (g_uiInitFlag != 1) {
        state.SkipWithError("definitions did not load");
    }
    ALM_FreeConfInfo();
    std::filesystem::remove_all(std::filesystem::path(path).parent_path());
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_LoadDefinitions)->Arg(500)->Arg(1000)->Arg(2000)->Unit(benchmark::kMillisecond)->Complexity();

// Baseline: the parse alone, configured as the loader configures it.
void BM_ParseOnly(benchmark::State& state) {
    const std::string path = WriteDefinitions(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        xercesc::XMLPlatformUtils::Initialize();
        {
            xercesc::SecurityManager security;
            security.setEntityExpansionLimit(0);
            xercesc::XercesDOMParser parser;
            parser.setSecurityManager(&security);
            parser.setDisableDefaultEntityResolution(true);
            parser.setCreateEntityReferenceNodes(false);
            parser.setValidationScheme(xercesc::XercesDOMParser::Val_Always);
            parser.parse(path.c_str());
            benchmark::DoNotOptimize(parser.getDocument());
        }
        xercesc::XMLPlatformUtils::Terminate();
    }
    std::filesystem::remove_all(std::filesystem::path(path).parent_path());
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ParseOnly)->Arg(500)->Arg(1000)->Arg(2000)->Unit(benchmark::kMillisecond)->Complexity();

}  // namespace
