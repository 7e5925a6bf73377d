// tola-portal: a portal simulator for the check-in client. Serves the device side of the
// check-in, receipt and key-and-URL exchanges over HTTP and HTTPS on loopback, answers from
// scripted queues and records what it received, decrypted. See docs/portal.md.
#include <httplib.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "certificate.h"
#include "portal_state.h"

namespace {

constexpr const char* kUsage =
    "usage: tola-portal [--bind ADDR] [--http-port N] [--https-port N] [--dir DIR]\n"
    "                   [--scenario FILE] [--factory-key KEY] [--no-http] [--no-https]\n"
    "  ports 0 (the default) pick free ones; DIR (default: a new /tmp/tola-portal-XXXXXX) receives\n"
    "  cert.pem (trust it with ARDO_CA_FILE), key.pem and the portal's own log.\n";

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

void say(const std::string& line) {
    std::printf("tola-portal: %s\n", line.c_str());
    std::fflush(stdout);
}

void installRoutes(httplib::Server& server, portal::PortalState& state, const std::string& scheme) {
    using httplib::Request;
    using httplib::Response;
    auto received = [&state](const Request& req, Response& res) {
        res.set_content(state.Received(req.get_param_value("imei")).dump(2), "application/json");
    };
    server.Get("/admin/received", received);
    server.Post("/admin/received", received);  // for clients that only POST
    server.Get("/admin/devices", [&state](const Request&, Response& res) {
        res.set_content(state.Devices().dump(2), "application/json");
    });
    server.Post("/admin/answers", [&state](const Request& req, Response& res) {
        portal::json answers = portal::json::parse(req.body, nullptr, false);
        std::string imei = req.has_param("imei") ? req.get_param_value("imei") : "*";
        if (answers.is_discarded()) {
            res.status = 400;
            res.set_content("{\"error\":\"answers are JSON\"}", "application/json");
            return;
        }
        state.AddAnswers(imei, answers);
        res.set_content("{}", "application/json");
    });
    server.Post("/admin/provision", [&state](const Request& req, Response& res) {
        portal::json provision = portal::json::parse(req.body, nullptr, false);
        if (!provision.is_object()) {
            res.status = 400;
            return;
        }
        state.SetProvision(req.has_param("imei") ? req.get_param_value("imei") : "*", provision);
        res.set_content("{}", "application/json");
    });
    server.Post("/admin/scenario", [&state](const Request& req, Response& res) {
        std::string why;
        if (!state.LoadScenario(portal::json::parse(req.body, nullptr, false), why)) {
            res.status = 400;
            res.set_content(portal::json{{"error", why}}.dump(), "application/json");
            return;
        }
        res.set_content("{}", "application/json");
    });
    server.Post("/admin/reset", [&state](const Request&, Response& res) {
        state.Reset();
        res.set_content("{}", "application/json");
    });
    // Everything else is a device talking to the portal.
    server.Post(R"(/(?!admin/).*)", [&state, scheme](const Request& req, Response& res) {
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
    server.set_payload_max_length(4 * 1024 * 1024);
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
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) {
                std::fputs(kUsage, stderr);
                std::exit(2);
            }
            return argv[++i];
        };
        if (arg == "--bind") {
            bind = value();
        } else if (arg == "--http-port") {
            httpPort = std::atoi(value().c_str());
        } else if (arg == "--https-port") {
            httpsPort = std::atoi(value().c_str());
        } else if (arg == "--dir") {
            dir = value();
        } else if (arg == "--scenario") {
            scenarioPath = value();
        } else if (arg == "--factory-key") {
            factoryKey = value();
        } else if (arg == "--no-http") {
            http = false;
        } else if (arg == "--no-https") {
            https = false;
        } else {
            std::fputs(kUsage, stderr);
            return 2;
        }
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
        installRoutes(*secure, state, "https");
        httpsPort = httpsPort == 0 ? secure->bind_to_any_port(bind)
                                   : (secure->bind_to_port(bind, httpsPort) ? httpsPort : -1);
        if (httpsPort < 0) {
            std::fprintf(stderr, "tola-portal: cannot listen for HTTPS on %s\n", bind.c_str());
            return 1;
        }
        gHttps = secure.get();
    }
    if (http) {
        plain = std::make_unique<httplib::Server>();
        installRoutes(*plain, state, "http");
        httpPort = httpPort == 0 ? plain->bind_to_any_port(bind)
                                 : (plain->bind_to_port(bind, httpPort) ? httpPort : -1);
        if (httpPort < 0) {
            std::fprintf(stderr, "tola-portal: cannot listen for HTTP on %s\n", bind.c_str());
            return 1;
        }
        gHttp = plain.get();
    }
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
