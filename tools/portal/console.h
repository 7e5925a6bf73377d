// The portal's web console: server-rendered pages over a snapshot of the portal's memory
// (PortalState::Snapshot) and the form that queues an answer for a device. No HTTP here: main.cpp
// routes requests to these functions.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "document_check.h"
#include "portal_state.h"

namespace portal {

// Where the portal listens, for the console's header.
struct ConsoleInfo {
    std::string bind;
    int httpPort = 0;
    int httpsPort = 0;
    std::string dir;
    std::string started;
};

// The queue form as the browser sent it, and what became of it.
struct QueueForm {
    std::map<std::string, std::string> fields;  // imei, code, version, interval, key, url, document, force
    std::vector<std::string> errors;            // shown above the form; the fields keep their values
    bool checked = false;                       // a document was run through the parser
    DocumentCheck check;
    std::string notice;  // shown after a successful queue
};

// Builds the answer the form describes into answer. A document is checked with the agent's parser
// first (unless the form's "force" box is ticked); false with form.errors set when the form has
// a bad field or the parser refuses the document.
bool AnswerFromForm(QueueForm& form, json& answer);

// GET /: devices that have checked in, the queue form, the portal's scripted state.
std::string RenderOverview(const json& snapshot, const ConsoleInfo& info, const QueueForm& form);
// GET /device?imei=I: one device's summary, queue form and timeline (newest first).
std::string RenderDevice(const json& snapshot, const std::string& imei, const ConsoleInfo& info,
                         const QueueForm& form);

// Text made safe for HTML element content and double-quoted attribute values.
std::string HtmlEscape(const std::string& text);
// Text made safe for one query-string value.
std::string UrlEncode(const std::string& text);

}  // namespace portal
