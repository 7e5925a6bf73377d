// The baseline of one check-in: a bare libcurl HTTPS POST of an envelope, with the TLS settings
// and options the host HTTP client uses (peer and host verification, the system CA directory
// beside an extra CA file, forced resolution, interface, JSON content type). bench/checkin.sh
// runs it under callgrind and counts the instructions of the second POST alone, the first one
// having initialised the libraries (as the agent's first check-in does).
//
//   tola_bare_post URL ENVELOPE-FILE CA-FILE [RESOLVE-ENTRY [INTERFACE]]
#include <curl/curl.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

size_t keepBody(char* data, size_t size, size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

// One exchange on a fresh easy handle, as the host HTTP client does per check-in.
long barePost(const std::string& url, const std::string& body, const char* caFile, const char* resolveEntry,
              const char* interfaceName, std::string& answer) {
    CURL* curl = curl_easy_init();
    struct curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    struct curl_slist* resolve = resolveEntry != nullptr ? curl_slist_append(nullptr, resolveEntry) : nullptr;
    const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, keepBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(curl, CURLOPT_CAINFO, caFile);
    curl_easy_setopt(curl, CURLOPT_CAPATH, info->capath != nullptr ? info->capath : "/etc/ssl/certs");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 30L);
    if (resolve != nullptr) {
        curl_easy_setopt(curl, CURLOPT_RESOLVE, resolve);
    }
    if (interfaceName != nullptr) {
        curl_easy_setopt(curl, CURLOPT_INTERFACE, interfaceName);
    }
    long status = 0;
    if (curl_easy_perform(curl) == CURLE_OK) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    }
    curl_slist_free_all(resolve);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return status;
}

// Not inlined, so that callgrind can collect exactly this call.
__attribute__((noinline)) long measuredPost(const std::string& url, const std::string& body,
                                            const char* caFile, const char* resolveEntry,
                                            const char* interfaceName, std::string& answer) {
    return barePost(url, body, caFile, resolveEntry, interfaceName, answer);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s URL ENVELOPE-FILE CA-FILE [RESOLVE-ENTRY [INTERFACE]]\n", argv[0]);
        return 2;
    }
    std::ifstream in(argv[2], std::ios::binary);
    std::stringstream body;
    body << in.rdbuf();
    const char* resolveEntry = argc > 4 ? argv[4] : nullptr;
    const char* interfaceName = argc > 5 ? argv[5] : nullptr;
    curl_global_init(CURL_GLOBAL_DEFAULT);
    std::string answer;
    barePost(argv[1], body.str(), argv[3], resolveEntry, interfaceName, answer);
    answer.clear();
    long status = measuredPost(argv[1], body.str(), argv[3], resolveEntry, interfaceName, answer);
    curl_global_cleanup();
    std::printf("HTTP %ld, %zu bytes answered\n", status, answer.size());
    return status == 200 ? 0 : 1;
}
