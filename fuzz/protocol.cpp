// Serves the bytes of one connection, with the stand-in engine.
// Input: records separated by the byte 0x1e. A record that begins with "!" is sent as it is. Any other is a
// message, sent with its length; one that ends in "~" is extended until it needs the large buffer.
#include "UrlServer/Protocol.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "ProtocolModel.h"
#include "UrlServer/Globals.h"
#include "UrlServer/UrlServer.h"
#include "UrlServer/UrlServerInstance.h"

using namespace katd_fuzz;
using namespace KATD_SPACE;

namespace {

const World world;
unsigned pauses = 0;

// A home directory of katd with lists and rules.
class Home {
public:
    Home() {
        const char* folder = std::getenv("TMPDIR");
        std::string name = std::string(folder == nullptr ? "/tmp" : folder) + "/katd-fuzz-XXXXXX";
        REQUIRE(mkdtemp(name.data()) != nullptr);
        path_ = name;
        REQUIRE(mkdir((path_ / "conf").c_str(), 0700) == 0);
        write(
            "conf/katd.ini",
            "[katd]\ndata_conn_string = socket\ncache_file = cache\nmax_cache_entries = 100\n"
            "save_cache_interval = 24\nconn_pool_size = 1\nquery_retry_times = 0\nquery_retry_interval = 1\n"
            "ctengine_query_timeout = 20\nserver_address = localhost\nurls_list_path = urls\n"
            "domains_list_path = domains\n");
        write("urls", world.prefixFile);
        write("domains", world.hostFile);
        write("rules", world.rules);
    }
    ~Home() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Home(const Home&) = delete;
    Home& operator=(const Home&) = delete;

    std::string operator/(const char* name) const { return path_ / name; }

private:
    void write(const char* name, const std::string& text) const { std::ofstream(path_ / name) << text; }

    std::filesystem::path path_;
};

void startServer() {
    static const Home home;
    std::signal(SIGPIPE, SIG_IGN);
    setenv("ASAPSDK_RULES", (home / "rules").c_str(), 1);
    formatMessages();
    REQUIRE(ops.conf.loadConfig((home / "").c_str()));
    urlSvr = new UrlServer;
    REQUIRE(urlSvr->valid);
    REQUIRE(urlSvr->urlManager.reloadUrlList(ops.conf.getUrlsListPath(), ops.conf.getDomainsListPath()));
}

struct Counters {
    unsigned queries = 0, matched = 0;

    Counters() { urlSvr->getUrlNumber(&queries, &matched); }
};

std::string sentBytes(const std::string& input) {
    constexpr int recordLimit = 64;  // few enough that all replies fit in the socket buffer
    constexpr std::size_t sizeLimit = 65536;
    std::string bytes;
    std::size_t at = 0;
    for (int records = 0; records < recordLimit && at < input.size() && bytes.size() < sizeLimit; ++records) {
        const std::size_t end = std::min(input.find('\x1e', at), input.size());
        std::string record = input.substr(at, end - at);
        at = end + 1;
        if (startsWith(record, "!")) {
            bytes += record.substr(1);
            continue;
        }
        if (!record.empty() && record.back() == '~') record.append(4090, '~');
        const std::uint32_t length = static_cast<std::uint32_t>(record.size());
        bytes.append(reinterpret_cast<const char*>(&length), sizeof(length)).append(record);
    }
    return bytes;
}

// Everything the server sends for these bytes.
std::string received(const std::string& bytes) {
    int ends[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    REQUIRE(send(ends[0], bytes.data(), bytes.size(), MSG_DONTWAIT) == static_cast<ssize_t>(bytes.size()));
    shutdown(ends[0], SHUT_WR);
    {
        UrlServerInstance instance(ends[1]);
        REQUIRE(instance.start() == -1);
        REQUIRE(instance.getCurrentUrl() == nullptr);
    }
    close(ends[1]);
    std::string text;
    char piece[4096];
    for (ssize_t size = 0; (size = recv(ends[0], piece, sizeof(piece), 0)) > 0;)
        text.append(piece, static_cast<std::size_t>(size));
    close(ends[0]);
    return text;
}

void requireReplies(const std::string& text, const std::vector<const Answer*>& replies) {
    std::size_t at = 0;
    for (const Answer* answer : replies) {
        ReplyHeader header;
        REQUIRE(text.copy(reinterpret_cast<char*>(&header), sizeof(header), at) == sizeof(header));
        at += sizeof(header);
        REQUIRE(header.result == 0 && header.matched <= 1);
        REQUIRE((header.padding[0] | header.padding[1] | header.padding[2]) == 0);
        REQUIRE(header.length <= maxCategories && header.length <= text.size() - at);
        REQUIRE(header.length == 0 || header.matched == 1);
        const std::string categories = text.substr(at, header.length);
        at += header.length;
        if (answer == nullptr) continue;
        REQUIRE(categories == answer->categories);
        REQUIRE((header.matched == 1) == answer->matched);
    }
    REQUIRE(at == text.size());
}

}  // namespace

// Counts the pauses between attempts, which wait for the client to hang up.
int poll(pollfd*, nfds_t, int milliseconds) {
    ++pauses;
    const timespec pause{0, milliseconds * 1000000L};
    ppoll(nullptr, 0, &pause, nullptr);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool started = (startServer(), true);
    REQUIRE(started);
    ops.logLevel = 3;
    ops.conf.setQueryTimeout(0, 1);
    std::remove(ops.conf.getCacheFilePath());
    pauses = 0;
    const Counters before;

    std::string bytes = sentBytes(bytesOf(data, size));
    const Model model(bytes, world);
    requireReplies(received(bytes), model.replies);

    REQUIRE(ops.logLevel == static_cast<std::int32_t>(model.level));
    unsigned retries = 0;
    unsigned interval = 0;
    ops.conf.getQueryTimeout(&retries, &interval);
    REQUIRE(retries == model.retries && interval == model.interval);
    REQUIRE(pauses >= model.fewestPauses && pauses <= model.mostPauses);
    const Counters after;
    REQUIRE(after.queries - before.queries <= model.queries);
    REQUIRE(after.matched - before.matched <= after.queries - before.queries);
    if (model.saves) REQUIRE(access(ops.conf.getCacheFilePath(), F_OK) == 0);
    return 0;
}
