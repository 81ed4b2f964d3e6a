#include "platform/hub/HubTransport.h"

#include "platform/portico/Multicast.h"

#include <cstddef>
#include <curl/curl.h>

namespace OstrandHub {

namespace {

constexpr long connectLimit = 2000;  ///< ms, name look-up included
constexpr long exchangeLimit = 5000; ///< ms
constexpr int lookInterval = 50;     ///< ms between two looks whether the exchange is abandoned

/// Takes the hub's answer and forgets it: only its status counts.
std::size_t discard(const char*, std::size_t size, std::size_t count, void*) {
    return size * count;
}

/// The registration address as a URL. One that brings its own scheme keeps it.
std::string registrationUrl(const std::string& hostAndPort, bool ssl) {
    std::string url = hostAndPort;
    if (url.find("://") == std::string::npos)
        url = (ssl ? "https://" : "http://") + url;
    while (url.back() == '/')
        url.pop_back();
    return url + "/serviceprovider";
}

/// One exchange: the handles of curl and what they refer to.
class Exchange {
public:
    explicit Exchange(const std::string& body) : document(body) {
        multi = curl_multi_init();
        easy = curl_easy_init();
        headers = curl_slist_append(nullptr, "Content-Type: application/json");
        // A large document must not wait for a "100 Continue" that a simple hub never sends.
        if (curl_slist* longer = curl_slist_append(headers, "Expect:"))
            headers = longer;
    }

    ~Exchange() {
        if (multi && easy)
            curl_multi_remove_handle(multi, easy);
        curl_easy_cleanup(easy);
        curl_multi_cleanup(multi);
        curl_slist_free_all(headers);
    }

    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    std::string run(const std::string& url, const std::atomic<bool>& abandoned) {
        if (!multi || !easy || !headers)
            return "out of memory";
        prepare(url);
        curl_multi_add_handle(multi, easy);
        int running = 1;
        while (running > 0) {
            if (abandoned)
                return "given up";
            if (curl_multi_perform(multi, &running) != CURLM_OK)
                return "the transfer failed";
            if (running > 0)
                curl_multi_poll(multi, nullptr, 0, lookInterval, nullptr);
        }
        return outcome();
    }

private:
    void prepare(const std::string& url) {
        curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(document.size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, document.c_str());
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
        curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
        // The hub is a neighbour: a proxy named in the environment is for other requests.
        curl_easy_setopt(easy, CURLOPT_PROXY, "");
        curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, connectLimit);
        curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, exchangeLimit);
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        // Clean-up does not wait for a name look-up that hangs.
        curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
        curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorText);
    }

    /// Empty for success, else the reason.
    std::string outcome() {
        int left = 0;
        const CURLMsg* message = curl_multi_info_read(multi, &left);
        if (!message || message->msg != CURLMSG_DONE)
            return "the transfer failed";
        if (message->data.result != CURLE_OK)
            return errorText[0] ? errorText : curl_easy_strerror(message->data.result);
        long code = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &code);
        return code / 100 == 2 ? "" : "status " + std::to_string(code);
    }

    const std::string& document;
    CURLM* multi = nullptr;
    CURL* easy = nullptr;
    curl_slist* headers = nullptr;
    char errorText[CURL_ERROR_SIZE] = "";
};

class NetworkTransport : public HubTransport {
public:
    std::string post(const std::string& hostAndPort, bool ssl, const std::string& document,
                     const std::atomic<bool>& abandoned) override {
        // Once a process and never undone: a thread may still be in a transfer at its end.
        static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
        if (ready != CURLE_OK)
            return curl_easy_strerror(ready);
        return Exchange(document).run(registrationUrl(hostAndPort, ssl), abandoned);
    }

    std::string multicast(const Portico::InetAddress& group, std::uint16_t port, int ttl,
                          const std::string& document) override {
        return Portico::Multicast::send(group, port, ttl, document);
    }
};

} // namespace

std::shared_ptr<HubTransport> makeNetworkTransport() {
    return std::make_shared<NetworkTransport>();
}

} // namespace OstrandHub
