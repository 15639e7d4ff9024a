// The lines of one language.properties file as the library's properties
// reader sees them: which it rejects, which key is on which line.
#ifndef ALARMDEF_LANGUAGE_FILE_H
#define ALARMDEF_LANGUAGE_FILE_H

#include <map>
#include <string>
#include <vector>

#include "Findings.h"

namespace alarmdef {

struct LanguageFile {
    std::string path;
    std::string label;                    // "en_US/language.properties", as messages name it
    std::map<std::string, int> keyLines;  // the line each key is stored from (the last one wins)
};

// Adds a warning per line the reader rejects or reads in pieces and per key
// that is given again. The caller has checked that the file exists and is small.
LanguageFile ReadLanguageFile(const std::string& path, const std::string& label, std::vector<Finding>* findings);

}  // namespace alarmdef

#endif
