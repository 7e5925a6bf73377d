#include "console.h"

#include <cctype>
#include <cstdint>
#include <cstdio>

namespace portal {

namespace {

// ---- Text helpers ---------------------------------------------------------------------------

std::string trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) {
        return "";
    }
    size_t end = text.find_last_not_of(" \t\r\n");
    return text.substr(begin, end - begin + 1);
}

// A whole number in int range, optionally signed; false for anything else.
bool parseInt(const std::string& text, int& value) {
    if (text.empty() || text.size() > 11) {
        return false;
    }
    size_t i = text[0] == '-' ? 1 : 0;
    if (i == text.size()) {
        return false;
    }
    long long n = 0;
    for (; i < text.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
            return false;
        }
        n = n * 10 + (text[i] - '0');
    }
    n = text[0] == '-' ? -n : n;
    if (n < INT32_MIN || n > INT32_MAX) {
        return false;
    }
    value = static_cast<int>(n);
    return true;
}

std::string field(const QueueForm& form, const char* name, const std::string& fallback = "") {
    auto it = form.fields.find(name);
    return it == form.fields.end() ? fallback : it->second;
}

// Pretty JSON for a <pre>; bytes that are not UTF-8 are replaced rather than thrown on.
std::string pretty(const json& value) {
    return value.dump(2, ' ', false, json::error_handler_t::replace);
}

std::string textOf(const json& value) {
    return value.is_string() ? value.get<std::string>()
                             : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// ---- What the pages show of a device --------------------------------------------------------

struct Summary {
    std::string lastCheckIn = "-";
    std::string lastResult = "-";
    std::string lastReceipt = "-";
    size_t records = 0;
};

// The result code a check-in was answered with: from the answer as sent, else "raw".
std::string resultOf(const json& record) {
    json reply = json::parse(record.value("reply", std::string()), nullptr, false);
    if (reply.is_object() && reply.contains("ResultCode")) {
        return textOf(reply["ResultCode"]);
    }
    return "raw answer";
}

std::string receiptText(const json& record) {
    const json& request = record["request"];
    return "ErrorCode " + textOf(request["ErrorCode"]) + " " +
           json(request.value("ErrorMessage", std::string()))
               .dump(-1, ' ', false, json::error_handler_t::replace);
}

Summary summarize(const json& device) {
    Summary s;
    const json& received = device["received"];
    s.records = received.size();
    for (const json& r : received) {
        std::string kind = r.value("kind", "");
        if (kind == "checkin") {
            s.lastCheckIn = r.value("time", "");
            s.lastResult = resultOf(r);
        } else if (kind == "receipt") {
            s.lastReceipt = r.value("time", "") + " " + receiptText(r);
        }
    }
    return s;
}

bool isDevice(const std::string& imei) {
    return imei != "*" && imei != "?";
}

// ---- Page parts -----------------------------------------------------------------------------

const char* const kStyle = R"(
body{font:14px/1.4 system-ui,sans-serif;margin:0;color:#1d2329;background:#f5f6f8}
header{background:#23303d;color:#fff;padding:10px 20px;display:flex;gap:24px;align-items:baseline}
header a{color:#fff;font-weight:600;text-decoration:none}header small{color:#b9c4cf}
main{padding:12px 20px;max-width:1400px}
h2{font-size:16px;margin:18px 0 8px}
table{border-collapse:collapse;background:#fff}
th,td{border:1px solid #d6dbe0;padding:4px 8px;text-align:left;vertical-align:top}
th{background:#eef1f4}
pre{margin:0;white-space:pre-wrap;word-break:break-all;max-height:22em;overflow:auto;
background:#fbfbfc;border:1px solid #e1e4e8;padding:6px;font-size:12px}
form.queue{background:#fff;border:1px solid #d6dbe0;padding:10px;display:grid;
grid-template-columns:max-content 1fr;gap:6px 10px;max-width:900px}
form.queue label{font-weight:600}form.queue textarea{width:100%;min-height:9em;font:12px monospace}
.errors{background:#fde8e8;border:1px solid #e0a0a0;padding:8px 12px;max-width:900px}
.notice{background:#e6f4ea;border:1px solid #9fd0aa;padding:8px 12px;max-width:900px}
.entry{background:#fff;border:1px solid #d6dbe0;margin:8px 0;padding:6px 10px}
.entry h3{font-size:14px;margin:0 0 6px}.entry .kind{display:inline-block;min-width:6em}
.kind-receipt h3{color:#1f6f3a}.kind-answer h3{color:#2e4f8f}
.kind-undecryptable h3,.kind-malformed h3{color:#a12a2a}
.pair{display:grid;grid-template-columns:1fr 1fr;gap:10px}.pair h4{margin:0 0 2px;font-size:12px;color:#59636e}
.hint{color:#59636e;font-size:12px}
)";

const char* const kScript = R"(
document.querySelectorAll('input[type=file][data-into]').forEach(function (picker) {
  picker.addEventListener('change', function () {
    var file = picker.files[0];
    if (!file) return;
    var reader = new FileReader();
    reader.onload = function () { document.getElementById(picker.dataset.into).value = reader.result; };
    reader.readAsText(file);
  });
});
var follow = document.getElementById('follow');
if (follow) {
  var dirty = false;
  document.querySelectorAll('form.queue').forEach(function (f) {
    f.addEventListener('input', function () { dirty = true; });
  });
  follow.checked = sessionStorage.getItem('follow') === '1';
  follow.addEventListener('change', function () { sessionStorage.setItem('follow', follow.checked ? '1' : '0'); });
  setInterval(function () { if (follow.checked && !dirty) location.reload(); }, 2000);
}
document.querySelectorAll('form[data-confirm]').forEach(function (f) {
  f.addEventListener('submit', function (e) { if (!confirm(f.dataset.confirm)) e.preventDefault(); });
});
)";

std::string pageStart(const std::string& title, const ConsoleInfo& info) {
    std::string out = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>" +
                      HtmlEscape(title) + "</title><style>" + kStyle + "</style></head><body>\n<header>" +
                      "<a href=\"/\">tola-portal</a><small>http " + std::to_string(info.httpPort) +
                      " &middot; https " + std::to_string(info.httpsPort) + " on " + HtmlEscape(info.bind) +
                      " &middot; dir " + HtmlEscape(info.dir) + " &middot; up since " +
                      HtmlEscape(info.started) +
                      "</small><label><input type=\"checkbox\" id=\"follow\"> refresh every 2 s</label>"
                      "</header>\n<main>\n";
    return out;
}

std::string pageEnd() {
    return std::string("</main>\n<script>") + kScript + "</script>\n</body></html>\n";
}

void renderMessages(std::string& out, const QueueForm& form) {
    if (!form.notice.empty()) {
        out += "<p class=\"notice\" id=\"notice\">" + HtmlEscape(form.notice) + "</p>\n";
    }
    if (form.errors.empty()) {
        return;
    }
    out += "<div class=\"errors\" id=\"errors\"><strong>Nothing was queued.</strong><ul>";
    for (const std::string& e : form.errors) {
        out += "<li>" + HtmlEscape(e) + "</li>";
    }
    out += "</ul></div>\n";
}

void renderForm(std::string& out, const QueueForm& form, const std::string& imei) {
    auto input = [&](const char* name, const char* label, const std::string& value, const std::string& extra,
                     const char* hint) {
        out += std::string("<label for=\"f-") + name + "\">" + label + "</label><div><input id=\"f-" + name +
               "\" name=\"" + name + "\" value=\"" + HtmlEscape(value) + "\" " + extra +
               "> <span class=\"hint\">" + hint + "</span></div>\n";
    };
    out += "<form class=\"queue\" id=\"queue\" method=\"post\" action=\"/admin/console/queue\">\n";
    input("imei", "IMEI", field(form, "imei", imei), "size=\"18\"",
          "\"*\": every device without a queue of its own");
    input("code", "Result code", field(form, "code", "1"), "size=\"6\" list=\"codes\"",
          "0, 94, 96 and 98 say a configuration follows");
    out +=
        "<datalist id=\"codes\"><option value=\"0\">configuration follows</option><option value=\"1\">"
        "nothing new</option><option value=\"94\">new key, configuration follows</option><option "
        "value=\"95\">new key</option><option value=\"96\">new URL, configuration follows</option>"
        "<option value=\"97\">new URL</option><option value=\"98\">configuration, then check-ins off"
        "</option><option value=\"99\">check-ins off</option></datalist>\n";
    input("version", "Version", field(form, "version", "0"), "size=\"10\"",
          "the version text the device stores");
    input("interval", "Interval (hours)", field(form, "interval"), "size=\"6\"", "optional");
    input("key", "Key", field(form, "key"), "size=\"40\"", "94 and 95: the new key (generated when empty)");
    input("url", "URL", field(form, "url"), "size=\"40\"", "96 and 97: the new check-in URL");
    out +=
        "<label for=\"f-document\">Document</label><div><textarea id=\"f-document\" name=\"document\" "
        "spellcheck=\"false\" placeholder='[{\"DevicePreferences\": {\"LEDEnabled\": false}}]'>" +
        HtmlEscape(field(form, "document")) +
        "</textarea><br><input type=\"file\" id=\"f-file\" accept=\".json,application/json,text/plain\" "
        "data-into=\"f-document\"> <span class=\"hint\">optional; checked with the agent's own parser "
        "and validators (against a factory device) before it is queued</span></div>\n";
    out +=
        std::string(
            "<label for=\"f-force\">Queue as it stands</label><div><input type=\"checkbox\" "
            "id=\"f-force\" name=\"force\" value=\"1\"") +
        (field(form, "force").empty() ? "" : " checked") +
        "> <span class=\"hint\">skip the check, to see how the device refuses a document</span></div>\n"
        "<div></div><div><button type=\"submit\" id=\"f-submit\">Queue the answer</button></div>\n</form>\n";
}

void renderQueue(std::string& out, const json& device) {
    const json& answers = device["answers"];
    if (answers.empty()) {
        out +=
            "<p class=\"hint\">No answer queued: the next check-in gets the \"*\" queue's next answer, else "
            "ResultCode 1.</p>\n";
        return;
    }
    out += "<ol class=\"queued\">";
    for (const json& a : answers) {
        out += "<li><pre>" + HtmlEscape(pretty(a)) + "</pre></li>";
    }
    out += "</ol>\n";
}

void renderEntry(std::string& out, const std::string& time, const std::string& kind, const std::string& title,
                 const std::string& decrypted, const std::string& wire) {
    out += "<section class=\"entry kind-" + HtmlEscape(kind) + "\" data-kind=\"" + HtmlEscape(kind) +
           "\"><h3>" + HtmlEscape(time) + " &middot; <span class=\"kind\">" + HtmlEscape(kind) + "</span> " +
           HtmlEscape(title) + "</h3><div class=\"pair\"><div><h4>Decrypted</h4><pre>" +
           HtmlEscape(decrypted) + "</pre></div><div><h4>On the wire</h4><pre>" + HtmlEscape(wire) +
           "</pre></div></div></section>\n";
}

// The answer to a check-in, as the device reads it once decrypted: the configuration in clear.
std::string decryptedAnswer(const json& record) {
    std::string wire = record.value("reply", std::string());
    json reply = json::parse(wire, nullptr, false);
    if (!reply.is_object()) {
        return "(sent as it stands, not JSON)\n" + wire;
    }
    if (record.contains("configuration") && reply.contains("EncryptedConfiguration")) {
        std::string text = record["configuration"].get<std::string>();
        json doc = json::parse(text, nullptr, false);
        reply.erase("EncryptedConfiguration");
        reply["Configuration (decrypted)"] = doc.is_discarded() ? json(text) : doc;
    }
    return pretty(reply);
}

// One record of the portal is one or two timeline entries: what came in and what went back.
void renderRecord(std::string& out, const json& r) {
    std::string time = r.value("time", "");
    std::string kind = r.value("kind", "");
    std::string envelope = r.contains("envelope") ? textOf(r["envelope"]) : textOf(r.value("body", json("")));
    std::string keyNote = r.contains("key") ? " (" + textOf(r["key"]) + " key)" : "";
    if (kind == "checkin") {
        std::string version =
            r["request"].is_object() ? textOf(r["request"].value("Version", json("?"))) : "?";
        renderEntry(out, time, "answer",
                    "ResultCode " + resultOf(r) + (r.contains("configuration") ? " with configuration" : ""),
                    decryptedAnswer(r), r.value("reply", std::string()));
        renderEntry(out, time, "checkin", "version " + version + keyNote, pretty(r["request"]), envelope);
    } else if (kind == "receipt") {
        renderEntry(out, time, "receipt", receiptText(r) + keyNote, pretty(r["request"]), envelope);
    } else if (kind == "provision") {
        renderEntry(out, time, "answer", "key-and-URL answer", pretty(r["answer"]),
                    r.value("reply", std::string()));
        renderEntry(out, time, "provision", "key-and-URL request", "IMEI " + r.value("imei", std::string()),
                    envelope);
    } else {
        renderEntry(out, time, kind, "on " + r.value("path", std::string()), "(could not be read)", envelope);
    }
}

}  // namespace

std::string HtmlEscape(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string UrlEncode(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
            out += static_cast<char>(c);
        } else {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%%%02X", c);
            out += hex;
        }
    }
    return out;
}

bool AnswerFromForm(QueueForm& form, json& answer) {
    answer = json::object();
    int code = 1;
    std::string codeText = trim(field(form, "code", "1"));
    if (!parseInt(codeText, code)) {
        form.errors.push_back("Result code: a whole number is needed, not \"" + codeText + "\"");
    }
    answer["ResultCode"] = code;
    std::string version = trim(field(form, "version"));
    if (!version.empty()) {
        answer["Version"] = version;
    }
    std::string intervalText = trim(field(form, "interval"));
    int interval = 0;
    if (!intervalText.empty()) {
        if (parseInt(intervalText, interval) && interval >= 0) {
            answer["CheckinIntervalInHours"] = interval;
        } else {
            form.errors.push_back("Interval: a whole number of hours is needed, not \"" + intervalText +
                                  "\"");
        }
    }
    std::string key = trim(field(form, "key"));
    if (!key.empty()) {
        answer["DeviceEncryptionKey"] = key;
    }
    std::string url = trim(field(form, "url"));
    if (!url.empty()) {
        answer["CheckInUrl"] = url;
    }
    std::string document = field(form, "document");
    if (!trim(document).empty()) {
        if (field(form, "force").empty()) {
            form.checked = true;
            form.check = CheckDocument(document);
            if (form.check.code != 0) {
                std::string why = "The agent refuses this document: code " + std::to_string(form.check.code);
                if (!form.check.message.empty()) {
                    why += ", \"" + form.check.message + "\"";
                }
                if (!form.check.detail.empty()) {
                    why += " (" + form.check.detail + ")";
                }
                form.errors.push_back(why);
            }
        }
        answer["Configuration"] = document;
    }
    return form.errors.empty();
}

std::string RenderOverview(const json& snapshot, const ConsoleInfo& info, const QueueForm& form) {
    std::string out = pageStart("tola-portal", info);
    renderMessages(out, form);
    out += "<h2>Devices</h2>\n";
    const json& devices = snapshot["devices"];
    bool any = false;
    for (auto& [imei, device] : devices.items()) {
        if (!isDevice(imei) || device["received"].empty()) {
            continue;
        }
        if (!any) {
            out +=
                "<table id=\"devices\"><tr><th>IMEI</th><th>Key in use</th><th>Last check-in</th>"
                "<th>Last result code</th><th>Last receipt</th><th>Queued</th></tr>\n";
            any = true;
        }
        Summary s = summarize(device);
        out += "<tr><td><a href=\"/device?imei=" + HtmlEscape(UrlEncode(imei)) + "\">" + HtmlEscape(imei) +
               "</a></td><td><code>" + HtmlEscape(device.value("key", "")) + "</code></td><td>" +
               HtmlEscape(s.lastCheckIn) + "</td><td>" + HtmlEscape(s.lastResult) + "</td><td>" +
               HtmlEscape(s.lastReceipt) + "</td><td>" + std::to_string(device["answers"].size()) +
               "</td></tr>\n";
    }
    out += any ? "</table>\n" : "<p id=\"devices\">No device has checked in yet.</p>\n";

    out += "<h2>Queue an answer</h2>\n";
    renderForm(out, form, "*");

    out += "<h2>Scenario and admin state</h2>\n<p>Factory key <code>" +
           HtmlEscape(textOf(snapshot["factory_key"])) +
           "</code></p>\n<table id=\"queues\"><tr><th>Queue</th>"
           "<th>Answers queued (next first)</th><th>Key-and-URL answer</th></tr>\n";
    for (auto& [imei, device] : devices.items()) {
        if (imei == "?") {
            continue;
        }
        out += "<tr><td><a href=\"/device?imei=" + HtmlEscape(UrlEncode(imei)) + "\">" + HtmlEscape(imei) +
               "</a></td><td>";
        renderQueue(out, device);
        out +=
            "</td><td>" +
            (device["provision"].is_null() ? std::string("-")
                                           : "<pre>" + HtmlEscape(pretty(device["provision"])) + "</pre>") +
            "</td></tr>\n";
    }
    out += "</table>\n";
    if (devices.contains("?")) {
        out += "<p><a href=\"/device?imei=%3F\">" + std::to_string(devices["?"]["received"].size()) +
               " requests from no known device</a> (not an envelope, or not decryptable)</p>\n";
    }
    out +=
        "<form method=\"post\" action=\"/admin/console/reset\" data-confirm=\"Forget every device, queue and "
        "record?\"><button type=\"submit\">Reset the portal</button> <span class=\"hint\">forgets every "
        "device, "
        "queue and record</span></form>\n";
    out += pageEnd();
    return out;
}

std::string RenderDevice(const json& snapshot, const std::string& imei, const ConsoleInfo& info,
                         const QueueForm& form) {
    std::string out = pageStart("tola-portal: " + imei, info);
    const json& devices = snapshot["devices"];
    json device = devices.contains(imei) ? devices[imei]
                                         : json{{"key", snapshot["factory_key"]},
                                                {"answers", json::array()},
                                                {"provision", nullptr},
                                                {"received", json::array()}};
    Summary s = summarize(device);
    out += "<h2>Device " + HtmlEscape(imei) + "</h2>\n";
    renderMessages(out, form);
    out += "<table id=\"summary\"><tr><th>Key in use</th><td><code>" + HtmlEscape(device.value("key", "")) +
           "</code></td></tr><tr><th>Last check-in</th><td>" + HtmlEscape(s.lastCheckIn) +
           "</td></tr><tr><th>Last result code</th><td>" + HtmlEscape(s.lastResult) +
           "</td></tr><tr><th>Last receipt</th><td>" + HtmlEscape(s.lastReceipt) + "</td></tr></table>\n";
    out += "<h2>Queue an answer</h2>\n";
    renderForm(out, form, imei);
    out += "<h2>Queued</h2>\n";
    renderQueue(out, device);
    out += "<h2>Timeline <span class=\"hint\">newest first</span></h2>\n<div id=\"timeline\">\n";
    const json& received = device["received"];
    for (auto it = received.rbegin(); it != received.rend(); ++it) {
        renderRecord(out, *it);
    }
    if (received.empty()) {
        out += "<p class=\"hint\">Nothing received from this device yet.</p>\n";
    }
    out += "</div>\n" + pageEnd();
    return out;
}

}  // namespace portal
