#include "DefinitionOutline.h"

#include <xercesc/framework/XMLPScanToken.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <fstream>
#include <memory>

namespace alarmdef {

namespace {

using namespace xercesc;

std::string Utf8(const XMLCh* text, XMLSize_t length) {
    if (text == nullptr || length == 0) {
        return "";
    }
    try {
        TranscodeToStr utf8(text, length, "UTF-8");
        return std::string(reinterpret_cast<const char*>(utf8.str()), utf8.length());
    } catch (...) {
        return "?";  // not representable: only named in messages
    }
}

std::string Utf8(const XMLCh* text) { return text == nullptr ? "" : Utf8(text, XMLString::stringLen(text)); }

const char kDoctypeEffect[] =
    ": the library's loader expands no entity it declares (their references read as empty text) and validates "
    "against nothing; remove it";

void AppendKept(XmlElement& element, const std::string& text) {
    if (element.text.size() < kTextKept) {
        element.text.append(text, 0, kTextKept - element.text.size());
    }
    element.textLength += text.size();
}

class OutlineHandler : public DefaultHandler {
public:
    OutlineHandler(const std::string& path, const OutlineLimits& limits, Outline* outline,
                   std::vector<Finding>* findings)
        : path_(path), limits_(limits), outline_(outline), findings_(findings) {}

    bool stopped() const { return stopped_; }
    bool sawDoctype() const { return sawDoctype_; }

    void setDocumentLocator(const Locator* const locator) override { locator_ = locator; }

    void startElement(const XMLCh* const, const XMLCh* const, const XMLCh* const qname, const Attributes&) override {
        if (stopped_) {
            return;
        }
        if (static_cast<int>(open_.size()) >= limits_.maxDepth || outline_->elements.size() >= limits_.maxElements) {
            stop(line(), "elements nested deeper than " + std::to_string(limits_.maxDepth) + " or more than " +
                             std::to_string(limits_.maxElements) +
                             " elements: not a definition file, not checked further");
            return;
        }
        XmlElement element;
        element.name = Utf8(qname);
        element.line = line();
        element.parent = open_.empty() ? -1 : open_.back();
        const int index = static_cast<int>(outline_->elements.size());
        if (element.parent >= 0) {
            outline_->elements[static_cast<std::size_t>(element.parent)].children.push_back(index);
        }
        outline_->elements.push_back(std::move(element));
        open_.push_back(index);
    }

    void endElement(const XMLCh* const, const XMLCh* const, const XMLCh* const) override {
        if (stopped_ || open_.empty()) {
            return;
        }
        const XmlElement& done = outline_->elements[static_cast<std::size_t>(open_.back())];
        open_.pop_back();
        if (!open_.empty()) {
            // A text content includes the descendants', as the loader reads it.
            XmlElement& parent = outline_->elements[static_cast<std::size_t>(open_.back())];
            const std::size_t length = done.textLength;
            AppendKept(parent, done.text);
            parent.textLength += length - done.text.size();
        }
    }

    void characters(const XMLCh* const chars, const XMLSize_t length) override {
        if (!stopped_ && !open_.empty()) {
            AppendKept(outline_->elements[static_cast<std::size_t>(open_.back())], Utf8(chars, length));
        }
    }

    void startDTD(const XMLCh* const name, const XMLCh* const, const XMLCh* const) override {
        sawDoctype_ = true;
        add(line(), "DOCTYPE " + Utf8(name) + kDoctypeEffect);
    }

    void externalEntityDecl(const XMLCh* const name, const XMLCh* const, const XMLCh* const systemId) override {
        add(line(), "external entity " + Utf8(name) + " (" + Utf8(systemId) + ") is never read by the loader");
    }

    void fatalError(const SAXParseException& e) override {
        stop(static_cast<int>(e.getLineNumber()),
             "fatal XML error: " + Utf8(e.getMessage()) + "; the loader keeps only what comes before");
    }
    // Not fatal: the loader goes on past it, and so does this pass.
    void error(const SAXParseException& e) override {
        add(static_cast<int>(e.getLineNumber()), "XML error: " + Utf8(e.getMessage()));
    }

private:
    int line() const { return locator_ != nullptr ? static_cast<int>(locator_->getLineNumber()) : 0; }
    void add(int line, const std::string& message) {
        findings_->push_back(Finding{path_, line, Severity::Error, message});
    }
    void stop(int line, const std::string& message) {
        if (!stopped_) {
            add(line, message);
        }
        stopped_ = true;
    }

    const std::string& path_;
    const OutlineLimits& limits_;
    Outline* outline_;
    std::vector<Finding>* findings_;
    const Locator* locator_ = nullptr;
    std::vector<int> open_;
    bool stopped_ = false;
    bool sawDoctype_ = false;
};

// A DOCTYPE without declarations reaches no handler: look for it in the
// lines before the document element.
int BareDoctypeLine(const std::string& path, int rootLine) {
    std::ifstream in(path, std::ios::binary);
    std::string text;
    for (int number = 1; number <= rootLine && std::getline(in, text); ++number) {
        if (text.find("<!DOCTYPE") != std::string::npos) {
            return number;
        }
    }
    return 0;
}

}  // namespace

Outline ReadOutline(const std::string& path, const OutlineLimits& limits, std::vector<Finding>* findings) {
    Outline outline;
    OutlineHandler handler(path, limits, &outline, findings);
    try {
        std::unique_ptr<SAX2XMLReader> reader(XMLReaderFactory::createXMLReader());
        // The loader's own settings: no entity is expanded, nothing external is fetched.
        SecurityManager security;
        security.setEntityExpansionLimit(0);
        reader->setProperty(XMLUni::fgXercesSecurityManager, &security);
        reader->setFeature(XMLUni::fgXercesDisableDefaultEntityResolution, true);
        reader->setFeature(XMLUni::fgXercesLoadExternalDTD, false);
        reader->setFeature(XMLUni::fgSAX2CoreValidation, false);
        reader->setFeature(XMLUni::fgSAX2CoreNameSpaces, false);
        reader->setContentHandler(&handler);
        reader->setErrorHandler(&handler);
        reader->setLexicalHandler(&handler);
        reader->setDeclarationHandler(&handler);
        // Step by step, so the limits can stop the scan before the end.
        XMLPScanToken token;
        bool more = reader->parseFirst(path.c_str(), token);
        while (more && !handler.stopped()) {
            more = reader->parseNext(token);
        }
        if (handler.stopped()) {
            try {
                reader->parseReset(token);
            } catch (const XMLException&) {
                // The scan had already ended with the error.
            }
        }
    } catch (const SAXParseException&) {
        // Already reported by the handler.
    } catch (const XMLException& e) {
        findings->push_back(Finding{path, static_cast<int>(e.getSrcLine()), Severity::Error,
                                    "cannot be read as XML: " + Utf8(e.getMessage())});
        return outline;
    } catch (...) {
        findings->push_back(Finding{path, 0, Severity::Error, "cannot be read as XML"});
        return outline;
    }
    const int doctype =
        handler.sawDoctype() || outline.elements.empty() ? 0 : BareDoctypeLine(path, outline.elements[0].line);
    if (doctype > 0) {
        findings->push_back(Finding{path, doctype, Severity::Error, std::string("DOCTYPE") + kDoctypeEffect});
    }
    outline.complete = !handler.stopped() && !outline.elements.empty();
    if (!handler.stopped() && outline.elements.empty()) {
        findings->push_back(Finding{path, 0, Severity::Error, "no XML document element"});
    }
    return outline;
}

}  // namespace alarmdef
