// alarmdef-check: lints a legacy alarm definition file and its language files.
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "AlarmSdkVersion.h"
#include "DefinitionCheck.h"

namespace {

constexpr int kExitUsage = 2;
constexpr char kUsageLine[] = "Usage: alarmdef-check [--json] FILE";

const char kUsage[] = R"(
Checks a legacy alarm definition file (FILE) and the language files beside it
(DIR/en_US/language.properties, DIR/zh_CN/language.properties) for everything
that makes alarms wrong at run time without any error: definitions missing an
element the loader pairs by position (and which alarms then get shifted
values), ToggleParams in only some definitions, duplicate or too long alarm
ids, missing language keys, texts stored empty or cut, dropped enumerations,
unknown elements, invalid types, lengths, classes and numbers, language lines
the reader rejects, DOCTYPE and external entities. The file is loaded with
the library's own loader.

Prints one line per finding, "FILE:LINE: warning|error: message", ordered by
file and line; with the JSON option one array of {"file", "line", "severity",
"message"} objects instead. Files over 4 MiB (4194304 bytes) are refused
unread; more than 100000 elements or a nesting deeper than 32 stop the check.

Options:
  --json     the findings as one JSON array
  --help     this text
  --version  the program's version
Exit status: 0 clean, 1 warnings only, 2 bad arguments, 3 errors.
)";

int Usage(const std::string& problem) {
    std::cerr << "alarmdef-check: " << problem << "\n" << kUsageLine << "  (alarmdef-check --help tells more)\n";
    return kExitUsage;
}

int Run(int argc, char** argv) {
    bool json = false;
    std::string file;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "--version") {
            std::cout << (arg == "--help" ? kUsageLine + std::string(kUsage)
                                          : "alarmdef-check (Alarm SDK) " ALARMSDK_VERSION "\n");
            return 0;
        }
        if (arg == "--json") {
            json = true;
        } else if (arg.compare(0, 1, "-") == 0) {
            return Usage("unknown option " + arg);
        } else if (!file.empty()) {
            return Usage("one FILE only");
        } else {
            file = arg;
        }
    }
    if (file.empty()) {
        return Usage("no FILE given");
    }
    // The loader logs every step; its lines would mix with the findings.
    setenv("RUNLOG_FILE", "/dev/null", 0);
    const std::vector<alarmdef::Finding> findings = alarmdef::CheckDefinitionFile(file);
    std::cout << (json ? alarmdef::FormatJson(findings) : alarmdef::FormatText(findings));
    return alarmdef::ExitCodeOf(findings);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "alarmdef-check: " << e.what() << "\n";
        return 3;
    }
}
