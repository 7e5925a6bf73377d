// tola-portal: a portal simulator for the check-in client. Serves the device side of the
// check-in, receipt and key-and-URL exchanges over HTTP and HTTPS on loopback, answers from
// scripted queues and records what it received, decrypted; a web console at / shows it and
// queues answers. See docs/portal.md.
#include <httplib.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "certificate.h"
#include "console.h"
#include "portal_state.h"

namespace {

constexpr const char* kUsage =
    "usage: tola-portal [--bind ADDR] [--http-port N] [--https-port N] [--dir DIR]\n"
    "                   [--scenario FILE] [--factory-key KEY] [--no-http] [--no-https]\n"
    "       tola-portal --help\n"
    "  Ports 0 (the default) pick free ones. DIR (default: a new /tmp/tola-portal-XXXXXX) receives\n"
    "  cert.pem (trust it with ARDO_CA_FILE), key.pem and the cipher's trace log. The web console is\n"
    "  at / on either port; the admin API under /admin/ (see docs/portal.md).\n"
    "  Exit status: 0 stopped by a signal, 1 could not start (port in use, unreadable scenario),\n"
    "  2 bad command line.\n";

httplib::Server* gHttp = nullptr;
httplib::Server* gHttps = nullptr;

void onSignal(int) {
    if (gHttp != nullptr) {
        gHttp->stop();
    }
    if (gHttps != nullptr) {
        gHttps->stop();
    }
}

// One line of the portal's log, stamped like the device's, so one check-in can be followed
// across both.
void say(const std::string& line) {
    std::printf("%s tola-portal: %s\n", portal::NowText().c_str(), line.c_str());
    std::fflush(stdout);
}

int usageError(const std::string& why) {
    std::fprintf(stderr, "tola-portal: %s\n%s", why.c_str(), kUsage);
    return 2;
}

// A port number (0 to 65535, digits only); false for anything else.
bool parsePort(const std::string& text, int& port) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    port = std::stoi(text);
    return port <= 65535;
}

std::string jsonText(const portal::json& j) {
    return j.dump(2, ' ', false, portal::json::error_handler_t::replace);
}

void replyJson(httplib::Response& res, int status, const portal::json& body) {
    res.status = status;
    res.set_content(jsonText(body), "application/json");
}

std::string imeiOf(const httplib::Request& req) {
    return req.has_param("imei") ? req.get_param_value("imei") : "*";
}

// Whatever the request's content type: the console's forms and `curl -d` send
// application/x-www-form-urlencoded, which the HTTP library would otherwise cap at 8 KB.
using AdminHandler =
    std::function<void(const httplib::Request&, const std::string& body, httplib::Response&)>;

struct Portal {
    portal::PortalState& state;
    portal::ConsoleInfo info;
    std::map<std::string, AdminHandler> postRoutes;

    void installAdmin() {
        postRoutes["/admin/received"] = [this](const httplib::Request& req, const std::string&,
                                               httplib::Response& res) {
            replyJson(res, 200, state.Received(req.get_param_value("imei")));
        };
        postRoutes["/admin/devices"] = [this](const httplib::Request&, const std::string&,
                                              httplib::Response& res) {
            replyJson(res, 200, state.Devices());
        };
        postRoutes["/admin/answers"] = [this](const httplib::Request& req, const std::string& body,
                                              httplib::Response& res) { queueAnswers(req, body, res); };
        postRoutes["/admin/provision"] = [this](const httplib::Request& req, const std::string& body,
                                                httplib::Response& res) {
            portal::json provision = portal::json::parse(body, nullptr, false);
            if (!provision.is_object()) {
                replyJson(res, 400, {{"error", "a key-and-URL answer is a JSON object"}});
                return;
            }
            state.SetProvision(imeiOf(req), provision);
            say("admin: key-and-URL answer for " + imeiOf(req) + ": " + provision.dump());
            replyJson(res, 200, {{"imei", imeiOf(req)}, {"provision", provision}});
        };
        postRoutes["/admin/scenario"] = [this](const httplib::Request&, const std::string& body,
                                               httplib::Response& res) {
            std::string why;
            if (!state.LoadScenario(portal::json::parse(body, nullptr, false), why)) {
                replyJson(res, 400, {{"error", why}});
                return;
            }
            say("admin: scenario loaded");
            replyJson(res, 200, portal::json::object());
        };
        postRoutes["/admin/reset"] = [this](const httplib::Request&, const std::string&,
                                            httplib::Response& res) {
            state.Reset();
            say("admin: reset");
            replyJson(res, 200, portal::json::object());
        };
        postRoutes["/admin/console/queue"] = [this](const httplib::Request&, const std::string& body,
                                                    httplib::Response& res) { consoleQueue(body, res); };
        postRoutes["/admin/console/reset"] = [this](const httplib::Request&, const std::string&,
                                                    httplib::Response& res) {
            state.Reset();
            say("admin: reset from the console");
            res.set_redirect("/", 303);
        };
    }

    // Appends one answer or an array; answers what was queued. With check=1 every Configuration
    // is first run through the agent's parser, and a refused one queues nothing (422).
    void queueAnswers(const httplib::Request& req, const std::string& body, httplib::Response& res) {
        portal::json answers = portal::json::parse(body, nullptr, false);
        if (answers.is_discarded() || !(answers.is_object() || answers.is_array())) {
            replyJson(res, 400, {{"error", "answers are a JSON object or an array of objects"}});
            return;
        }
        std::string imei = imeiOf(req);
        if (req.get_param_value("check") == "1") {
            portal::json list = answers.is_array() ? answers : portal::json::array({answers});
            for (size_t i = 0; i < list.size(); ++i) {
                if (!list[i].is_object() || !list[i].contains("Configuration")) {
                    continue;
                }
                const portal::json& doc = list[i]["Configuration"];
                portal::DocumentCheck check =
                    portal::CheckDocument(doc.is_string() ? doc.get<std::string>() : doc.dump());
                if (check.code != 0) {
                    replyJson(res, 422,
                              {{"error", "the agent refuses the document of answer " + std::to_string(i)},
                               {"code", check.code},
                               {"message", check.message},
                               {"detail", check.detail}});
                    return;
                }
            }
        }
        portal::json queued = state.AddAnswers(imei, answers);
        say("admin: queued " + std::to_string(queued.size()) + " answer(s) for " + imei);
        replyJson(res, 200, {{"imei", imei}, {"queued", queued}});
    }

    // The console's form: queue and go back to the page, or show the page again with the errors.
    void consoleQueue(const std::string& body, httplib::Response& res) {
        portal::QueueForm form;
        httplib::Params params;
        httplib::detail::parse_query_text(body, params);
        for (auto& [name, value] : params) {
            form.fields[name] = value;
        }
        std::string imei =
            form.fields.count("imei") && !form.fields["imei"].empty() ? form.fields["imei"] : "*";
        form.fields["imei"] = imei;
        portal::json answer;
        if (!portal::AnswerFromForm(form, answer)) {
            res.status = 422;
            res.set_content(imei == "*" ? portal::RenderOverview(state.Snapshot(), info, form)
                                        : portal::RenderDevice(state.Snapshot(), imei, info, form),
                            "text/html; charset=utf-8");
            return;
        }
        state.AddAnswers(imei, answer);
        say("admin: console queued an answer for " + imei + ": ResultCode " + answer["ResultCode"].dump() +
            (answer.contains("Configuration")
                 ? (form.checked ? " with a checked document" : " with an unchecked document")
                 : ""));
        std::string doc = !answer.contains("Configuration") ? "none"
                          : form.checked                    ? "accepted"
                                                            : "unchecked";
        res.set_redirect((imei == "*" ? std::string("/?") : "/device?imei=" + portal::UrlEncode(imei) + "&") +
                             "queued=1&document=" + doc,
                         303);
    }

    static portal::QueueForm noticeFrom(const httplib::Request& req) {
        portal::QueueForm form;
        if (req.get_param_value("queued") == "1") {
            std::string doc = req.get_param_value("document");
            form.notice =
                "Answer queued" + std::string(doc == "accepted" ? "; the agent's parser accepts its document."
                                              : doc == "unchecked" ? "; its document was not checked."
                                                                   : ".");
        }
        return form;
    }

    void install(httplib::Server& server, const std::string& scheme) {
        using httplib::Request;
        using httplib::Response;
        server.Get("/", [this](const Request& req, Response& res) {
            consolePage(res, portal::RenderOverview(state.Snapshot(), info, noticeFrom(req)));
        });
        server.Get("/device", [this](const Request& req, Response& res) {
            std::string imei = req.get_param_value("imei");
            consolePage(res, portal::RenderDevice(state.Snapshot(), imei, info, noticeFrom(req)));
        });
        server.Get("/admin/received", [this](const Request& req, Response& res) {
            replyJson(res, 200, state.Received(req.get_param_value("imei")));
        });
        server.Get("/admin/devices",
                   [this](const Request&, Response& res) { replyJson(res, 200, state.Devices()); });
        for (auto& [path, handler] : postRoutes) {
            AdminHandler h = handler;
            server.Post(path, [h](const Request& req, Response& res, const httplib::ContentReader& reader) {
                std::string body;
                reader([&body](const char* data, size_t length) {
                    body.append(data, length);
                    return body.size() <= kMaxBody;
                });
                h(req, body, res);
            });
        }
        // A POST without a body (curl -X POST) carries no length; the library would refuse it.
        server.set_pre_routing_handler([this](const Request& req, Response& res) {
            auto route = postRoutes.find(req.path);
            if (req.method != "POST" || route == postRoutes.end() || req.has_header("Content-Length") ||
                req.has_header("Transfer-Encoding")) {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            route->second(req, "", res);
            return httplib::Server::HandlerResponse::Handled;
        });
        // Everything else is a device talking to the portal.
        server.Post(R"(/(?!admin/).*)", [this, scheme](const Request& req, Response& res) {
            portal::Reply reply;
            try {
                reply = state.Handle(req.path, req.body);
            } catch (const std::exception& e) {
                reply.status = 500;
                reply.body = "{}";
                reply.summary = std::string("scenario error: ") + e.what();
            }
            res.status = reply.status;
            res.set_content(reply.body, reply.contentType.c_str());
            say(scheme + " " + req.path + ": " + reply.summary);
        });
        server.set_payload_max_length(kMaxBody);
        // SO_REUSEADDR alone: a restart may take the port of a closed portal at once, but a
        // second portal cannot share the port of a running one (the library's default adds
        // SO_REUSEPORT, which lets both listen and splits the devices between them).
        server.set_socket_options([](socket_t sock) {
            int yes = 1;
            setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        });
    }

    static void consolePage(httplib::Response& res, const std::string& html) {
        // Nothing on a console page comes from elsewhere: no scripts, styles or images but its own.
        res.set_header("Content-Security-Policy",
                       "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; "
                       "form-action 'self'; base-uri 'none'");
        res.set_header("Cache-Control", "no-store");
        res.set_content(html, "text/html; charset=utf-8");
    }

    static constexpr size_t kMaxBody = 4 * 1024 * 1024;
};

// Binds server to bind:port (a free port when 0); the port, or -1 with the reason printed.
int bindServer(httplib::Server& server, const std::string& bind, int port, const char* what) {
    errno = 0;
    int bound = port == 0 ? server.bind_to_any_port(bind) : (server.bind_to_port(bind, port) ? port : -1);
    if (bound < 0) {
        int error = errno;
        std::fprintf(stderr, "tola-portal: cannot listen for %s on %s:%d: %s\n", what, bind.c_str(), port,
                     error == EADDRINUSE ? "the port is in use (another tola-portal?)"
                     : error != 0        ? std::strerror(error)
                                         : "bind failed");
    }
    return bound;
}

}  // namespace

int main(int argc, char** argv) {
    std::string bind = "127.0.0.1";
    int httpPort = 0;
    int httpsPort = 0;
    bool http = true;
    bool https = true;
    std::string dir;
    std::string scenarioPath;
    std::string factoryKey = "VeltraFactoryKey-2017";
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h" || arg == "help") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        bool takesValue = arg == "--bind" || arg == "--http-port" || arg == "--https-port" ||
                          arg == "--dir" || arg == "--scenario" || arg == "--factory-key";
        if (takesValue && i + 1 >= argc) {
            return usageError(arg + " needs a value");
        }
        std::string value = takesValue ? argv[++i] : "";
        if (arg == "--bind") {
            bind = value;
        } else if (arg == "--http-port" || arg == "--https-port") {
            if (!parsePort(value, arg == "--http-port" ? httpPort : httpsPort)) {
                return usageError(arg + ": not a port number (0 to 65535): \"" + value + "\"");
            }
        } else if (arg == "--dir") {
            dir = value;
        } else if (arg == "--scenario") {
            scenarioPath = value;
        } else if (arg == "--factory-key") {
            factoryKey = value;
        } else if (arg == "--no-http") {
            http = false;
        } else if (arg == "--no-https") {
            https = false;
        } else if (arg.rfind("-", 0) == 0) {
            return usageError("unknown option " + arg);
        } else {
            return usageError("unexpected argument \"" + arg + "\"");
        }
    }
    if (!http && !https) {
        return usageError("--no-http and --no-https leave nothing to serve");
    }
    if (dir.empty()) {
        char templ[] = "/tmp/tola-portal-XXXXXX";
        if (mkdtemp(templ) == nullptr) {
            std::perror("tola-portal: mkdtemp");
            return 1;
        }
        dir = templ;
    } else {
        mkdir(dir.c_str(), 0755);
    }
    // The cipher logs its traces through the platform log under ARDO_ROOT; keep the portal's
    // own traces in its directory instead of the simulated device's log.
    setenv("ARDO_ROOT", dir.c_str(), 1);

    portal::PortalState state(factoryKey);
    if (!scenarioPath.empty()) {
        std::ifstream in(scenarioPath);
        portal::json scenario = portal::json::parse(in, nullptr, false);
        std::string why;
        if (!in.is_open() || !state.LoadScenario(scenario, why)) {
            std::fprintf(stderr, "tola-portal: scenario %s: %s\n", scenarioPath.c_str(),
                         in.is_open() ? why.c_str() : "cannot be read");
            return 1;
        }
    }

    std::string certPath = dir + "/cert.pem";
    std::string keyPath = dir + "/key.pem";
    Portal routes{state, {}, {}};
    routes.info.bind = bind;
    routes.info.dir = dir;
    routes.info.started = portal::NowText();
    routes.installAdmin();
    std::unique_ptr<httplib::Server> plain;
    std::unique_ptr<httplib::SSLServer> secure;
    if (https) {
        std::string why;
        if (!portal::MakeSelfSignedCertificate(certPath, keyPath, why)) {
            std::fprintf(stderr, "tola-portal: certificate: %s\n", why.c_str());
            return 1;
        }
        secure = std::make_unique<httplib::SSLServer>(certPath.c_str(), keyPath.c_str());
        if (!secure->is_valid()) {
            std::fprintf(stderr, "tola-portal: the HTTPS server cannot use %s\n", certPath.c_str());
            return 1;
        }
        routes.install(*secure, "https");
        httpsPort = bindServer(*secure, bind, httpsPort, "HTTPS");
        if (httpsPort < 0) {
            return 1;
        }
        gHttps = secure.get();
    }
    if (http) {
        plain = std::make_unique<httplib::Server>();
        routes.install(*plain, "http");
        httpPort = bindServer(*plain, bind, httpPort, "HTTP");
        if (httpPort < 0) {
            return 1;
        }
        gHttp = plain.get();
    }
    routes.info.httpPort = http ? httpPort : 0;
    routes.info.httpsPort = https ? httpsPort : 0;
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);

    std::thread httpsThread;
    if (secure) {
        httpsThread = std::thread([&] { secure->listen_after_bind(); });
    }
    std::thread httpThread;
    if (plain) {
        httpThread = std::thread([&] { plain->listen_after_bind(); });
    }
    std::ostringstream ready;
    ready << "ready http=" << (http ? httpPort : 0) << " https=" << (https ? httpsPort : 0)
          << " ca=" << (https ? certPath : std::string("-")) << " dir=" << dir;
    say(ready.str());
    if (httpsThread.joinable()) {
        httpsThread.join();
    }
    if (httpThread.joinable()) {
        httpThread.join();
    }
    say("stopped");
    return 0;
}
