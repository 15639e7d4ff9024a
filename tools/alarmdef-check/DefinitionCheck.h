// alarmdef-check's rules: everything in a legacy definition file and its two
// language files that makes alarms wrong at run time without any error.
#ifndef ALARMDEF_DEFINITION_CHECK_H
#define ALARMDEF_DEFINITION_CHECK_H

#include <cstddef>
#include <string>
#include <vector>

#include "DefinitionOutline.h"
#include "Findings.h"

namespace alarmdef {

struct CheckLimits {
    // Larger files are refused unread (the XML file and each language file).
    // A file of 1000 definitions is about 1.5 MB.
    std::size_t maxFileBytes = 4u << 20;
    OutlineLimits outline;
};

// Reads xmlPath and the language files beside it ("<dir>/en_US/language.properties",
// "<dir>/zh_CN/language.properties"), loads them with the library's own
// loader, and returns the findings ordered by file (XML, English, Chinese) and
// line. Uses the library's process-wide configuration state: one check at a
// time per process.
std::vector<Finding> CheckDefinitionFile(const std::string& xmlPath, const CheckLimits& limits = CheckLimits());

}  // namespace alarmdef

#endif
