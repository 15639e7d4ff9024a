#include "LanguageFile.h"

#include <cctype>
#include <cstring>
#include <fstream>

#include "AlarmConfig.h"

namespace alarmdef {

namespace {

// The reader's bounds: a line buffer of 770 bytes, keys below 128
// characters, values below 512 counted with their line end.
constexpr std::size_t kPieceChars = 769;
constexpr std::size_t kKeyLimit = 128;
constexpr std::size_t kValueLimit = 512;

}  // namespace

LanguageFile ReadLanguageFile(const std::string& path, const std::string& label, std::vector<Finding>* findings) {
    LanguageFile file{path, label, {}};
    auto warn = [&](int line, const std::string& message) {
        findings->push_back(Finding{path, line, Severity::Warning, message});
    };
    std::ifstream in(path, std::ios::binary);
    std::string physical;
    for (int number = 1; std::getline(in, physical); ++number) {
        if (!in.eof()) {
            physical += '\n';
        }
        if (physical.size() > kPieceChars) {
            warn(number, "line of " + std::to_string(physical.size()) +
                             " characters: the reader takes 769 at a time, and each further piece is read as a "
                             "line of its own");
        }
        for (std::size_t start = 0; start < physical.size(); start += kPieceChars) {
            std::string piece = physical.substr(start, kPieceChars);
            std::size_t first = 0;
            while (first < piece.size() && std::isspace(static_cast<unsigned char>(piece[first])) != 0) {
                ++first;
            }
            if (first == piece.size() || piece[first] == '#') {
                continue;
            }
            std::vector<char> buffer(piece.begin() + static_cast<std::ptrdiff_t>(first), piece.end());
            buffer.push_back('\0');
            char* text = buffer.data();
            char* key = nullptr;
            char* value = nullptr;
            if (ALM_GetKey(&text, &key, &value) != 0) {
                warn(number, "not a key=value line: the reader rejects it");
                continue;
            }
            const std::size_t keyLength = std::strlen(key);
            const std::size_t valueLength = std::strlen(value);
            if (keyLength >= kKeyLimit || valueLength >= kValueLimit) {
                warn(number, keyLength >= kKeyLimit
                                 ? "key of " + std::to_string(keyLength) + " characters (at most 127): line rejected"
                                 : "value of " + std::to_string(valueLength) +
                                       " characters with its line end (at most 511): line rejected");
                continue;
            }
            const auto stored = file.keyLines.find(key);
            if (stored != file.keyLines.end()) {
                warn(number, std::string("key ") + key + " again (line " + std::to_string(stored->second) +
                                 "): the last value wins");
            }
            file.keyLines[key] = number;
        }
    }
    return file;
}

}  // namespace alarmdef
