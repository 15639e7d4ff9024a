// The definition file's elements with their line numbers, read in one
// streaming pass with the same entity limits as the library's loader, and
// with bounds of its own, so a hostile file costs bounded time and memory.
#ifndef ALARMDEF_DEFINITION_OUTLINE_H
#define ALARMDEF_DEFINITION_OUTLINE_H

#include <cstddef>
#include <string>
#include <vector>

#include "Findings.h"

namespace alarmdef {

struct OutlineLimits {
    std::size_t maxElements = 100000;
    int maxDepth = 32;
};

// What a text is kept up to: far more than any value the loader keeps.
constexpr std::size_t kTextKept = 1024;

struct XmlElement {
    std::string name;
    int line = 0;
    int parent = -1;             // index in Outline::elements; -1 for the document element
    std::vector<int> children;   // element children, in order
    std::string text;            // text content, descendants' included (what the loader reads), cut at kTextKept
    std::size_t textLength = 0;  // its whole length in bytes
};

struct Outline {
    // In document order: a parent comes before its children; 0 is the
    // document element when there is one.
    std::vector<XmlElement> elements;
    bool complete = false;  // read to the end, well-formed and within the limits
};

// Reads path (UTF-8 texts). Problems of the document itself (not
// well-formed, DOCTYPE, external entities, limits) are added to findings.
// Call between XMLPlatformUtils::Initialize and Terminate.
Outline ReadOutline(const std::string& path, const OutlineLimits& limits, std::vector<Finding>* findings);

}  // namespace alarmdef

#endif
