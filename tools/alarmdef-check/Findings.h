// What alarmdef-check reports: one finding per problem, at the line of the
// element or language line it is about, printed as text or as JSON.
#ifndef ALARMDEF_FINDINGS_H
#define ALARMDEF_FINDINGS_H

#include <string>
#include <vector>

namespace alarmdef {

enum class Severity { Warning, Error };

struct Finding {
    std::string file;
    int line = 0;  // 0: the file as a whole
    Severity severity = Severity::Error;
    std::string message;
};

// Exit status: 0 clean, 1 warnings only, 3 errors (2 is a usage error, as in GNU programs).
int ExitCodeOf(const std::vector<Finding>& findings);

// "FILE:LINE: warning|error: message" per finding ("FILE: ..." for line 0).
std::string FormatText(const std::vector<Finding>& findings);

// One JSON array of {"file", "line", "severity", "message"} objects.
std::string FormatJson(const std::vector<Finding>& findings);

}  // namespace alarmdef

#endif
