// Loads the alarm definitions: parses the XML definition file, has the two
// language files read, and builds the definition list from the document.
#include <mutex>

#include <xercesc/dom/DOMException.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include "AlarmBuildAlarmConfInfo.h"
#include "AlmLog.h"
#include "ForkSafety.h"
#include "NoThrow.h"

using xercesc::XercesDOMParser;
using xercesc::XMLPlatformUtils;
using xercesc::XMLString;

namespace {

constexpr const char* kLogSource = "../src/AlarmParseConfFile";

// Two first look-ups on different threads must not build two lists at once.
std::mutex g_loadMutex;

void LogTranscoded(const char* format, const XMLCh* message) {
    char* text = message == nullptr ? nullptr : XMLString::transcode(message);
    ALM_LOG_ERROR(format, text == nullptr ? "" : text);
    XMLString::release(&text);
}

// Parses the definition file; NULL (after its message) when no parser could
// be made or the parse threw. The parser owns the document.
XercesDOMParser* ParseDefinitions(xercesc::SecurityManager* security) {
    XercesDOMParser* parser = nullptr;
    try {
        parser = new XercesDOMParser(nullptr, XMLPlatformUtils::fgMemoryManager, nullptr);
    } catch (...) {
        parser = nullptr;
    }
    if (parser == nullptr) {
        ALM_LOG_ERROR("QLF_Controller_Flow::InitFlowDomParser XercesDOMParser failed.");
        return nullptr;
    }
    parser->setSecurityManager(security);
    parser->setDisableDefaultEntityResolution(true);
    parser->setCreateEntityReferenceNodes(false);
    parser->setValidationScheme(XercesDOMParser::Val_Always);
    try {
        parser->parse(g_stCfgParaInfo.configPath);
        return parser;
    } catch (const xercesc::SAXException& e) {
        LogTranscoded("QLF_Controller_Flow::InitFlowDomParser Catch a SAXException : %s", e.getMessage());
    } catch (const xercesc::XMLException& e) {
        LogTranscoded("QLF_Controller_Flow::InitFlowDomParser Catch a XMLException : %s", e.getMessage());
    } catch (const xercesc::DOMException& e) {
        LogTranscoded("QLF_Controller_Flow::InitFlowDomParser Catch a DOMException : %s", e.getMessage());
    } catch (...) {
        ALM_LOG_ERROR("QLF_Controller_Flow::InitFlowDomParser Catch a Unknown Exception.");
    }
    delete parser;
    return nullptr;
}

void LoadDefinitions() {
    xercesc::SecurityManager security;
    // Refuses every user-defined entity: no expansion bombs.
    security.setEntityExpansionLimit(0);
    XercesDOMParser* parser = ParseDefinitions(&security);
    if (parser == nullptr) {
        return;
    }
    xercesc::DOMDocument* doc = parser->getDocument();
    if (doc == nullptr) {
        ALM_LOG_ERROR("QLF_Controller_Flow::Initialize: pXmlDoc is NULL");
        delete parser;
        return;
    }
    (void)ALM_ParseConfigFile(ALARM_LANG_CONFIG_EN_PATH, true);
    (void)ALM_ParseConfigFile(ALARM_LANG_CONFIG_CH_PATH, false);
    if (ALM_BuildConfInfoFromXml(doc->getDocumentElement(), &g_stCfgParaInfo) == -1) {
        ALM_LOG_ERROR("ALM_BuildConfInfoFromXml failed! ");
    } else {
        ALM_LOG_INFO("ALM_ConfInit success! ");
        __atomic_store_n(&g_uiInitFlag, 1, __ATOMIC_RELEASE);
    }
    delete parser;
}

// The parser platform is started once, when the library is loaded, and kept
// for the life of the process. Its start-up counts itself before anything in
// it can fail, and a start-up that failed can be neither undone (ending it
// then crashes) nor repeated (the count says it is done): started per load,
// one start under memory pressure would leave loading impossible for good.
// Started here, a load only parses, and a load that ran out of memory is
// simply done again by the next look-up. Other users of the parser in this
// process keep their own start and end: the count never falls to zero.
bool StartParser() {
    try {
        XMLPlatformUtils::Initialize();
    } catch (const xercesc::XMLException& e) {
        // The message goes out as the parser's own wide string, untranscoded.
        ALM_LOG_ERROR("Initialize Error during Xerces-c Initialization.\nException message: %s",
                      reinterpret_cast<const char*>(e.getMessage()));
        return false;
    } catch (...) {
        ALM_LOG_ERROR("In %s, out of memory!", "ALM_ConfInit");
        return false;
    }
    return XMLPlatformUtils::fgMemoryManager != nullptr;
}

const bool g_parserStarted = StartParser();

}  // namespace

void ALM_LockLoadsForFork() { g_loadMutex.lock(); }
void ALM_UnlockLoadsAfterFork() { g_loadMutex.unlock(); }

extern "C" void ALM_ConfInit(void) {
    ALM_LOG_INFO("ALM_ConfInit start! ");
    std::lock_guard<std::mutex> lock(g_loadMutex);
    if (__atomic_load_n(&g_uiInitFlag, __ATOMIC_ACQUIRE) == 1) {
        return;
    }
    if (!g_parserStarted) {
        ALM_LOG_ERROR("QLF_Controller_Flow::InitFlowDomParser XercesDOMParser failed.");
        return;
    }
    // Not loaded when it runs out of memory: the next look-up tries again.
    alarmsdk::NoThrow(ALM_CALL_SITE("ALM_ConfInit"), 0, [] {
        LoadDefinitions();
        return 0;
    });
}
