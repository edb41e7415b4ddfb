// The model of a connection: the replies to its bytes, and what control requests change.
#ifndef KATD_FUZZ_PROTOCOLMODEL_H
#define KATD_FUZZ_PROTOCOLMODEL_H

#include <map>
#include <string>
#include <vector>

#include "Fuzz.h"

namespace katd_fuzz {

struct Answer {
    std::string categories;
    bool matched;
    bool fromEngine;
    bool isProvisional;  // a query with retries asks again
};

// The known answers: the lists and rules hold these URLs only. Other URLs may get any answer.
struct World {
    const char* prefixFile = "1|19\n005|shop.example/tools\n";
    const char* hostFile = "1|12\n012|ads.example\n";
    std::string rules =
        "host few.example 0,5,0,300\nhost final.example final\nhost unknown.example unknown\n"
        "host broken.example fail 2 110 \"service timed out\"\nhost many.example 1";
    std::map<std::string, Answer> answers = {
        {"shop.example/tools/saw", {"\x05", true, false, false}},
        {"ads.example", {"\x0c", true, false, false}},
        {"few.example", {"\x05\x2c", true, true, false}},
        {"final.example", {"", true, true, false}},
        {"unknown.example", {"", false, true, true}},
        {"broken.example", {"", false, true, false}},
    };

    World() {
        std::string first256("\x01");
        for (int number = 2; number <= 300; ++number) {
            rules += "," + std::to_string(number);
            if (number <= 256) first256 += static_cast<char>(number);
        }
        rules += "\n";
        answers["many.example"] = {first256, true, true, false};
    }
};

struct Model {
    static constexpr std::uint32_t longest = 16 * 1024 * 1024;  // bytes of a message

    std::vector<const Answer*> replies;  // null: a reply with any content
    unsigned queries = 0;
    unsigned fewestPauses = 0, mostPauses = 0;
    std::uint32_t level = 3;
    std::uint32_t retries = 0, interval = 1;
    bool saves = false;  // the cache is saved after a query

    // Reads the bytes up to the first request that is refused. Changes retry settings in them so that they
    // take little time and, with an interval other than 0, can be changed again.
    Model(std::string& bytes, const World& world) {
        for (std::size_t at = 0; bytes.size() - at >= 4;) {
            const std::uint32_t length = numberAt(bytes, at);
            at += 4;
            if (length <= 4 || length > longest || length > bytes.size() - at) return;
            const std::string prefix = bytes.substr(at, 4);
            if (prefix == "ctl:") {
                control(bytes, at + 4, length - 4);
            } else if (prefix == "url0" || prefix == "url1") {
                query(world, upToZero(bytes.substr(at + 4, length - 4)), prefix == "url1");
            } else {
                return;
            }
            at += length;
        }
    }

private:
    static std::uint32_t numberAt(const std::string& bytes, std::size_t at) {
        std::uint32_t number;
        bytes.copy(reinterpret_cast<char*>(&number), sizeof(number), at);
        return number;
    }
    static void setNumberAt(std::string& bytes, std::size_t at, std::uint32_t number) {
        std::memcpy(&bytes[at], &number, sizeof(number));
    }

    void query(const World& world, const std::string& url, bool withRetry) {
        const auto known = world.answers.find(url);
        const Answer* answer = known == world.answers.end() ? nullptr : &known->second;
        replies.push_back(answer);
        ++queries;
        const unsigned pauses = withRetry && retries > 0 ? retries + 1 : 0;
        if (answer == nullptr || answer->isProvisional) mostPauses += pauses;
        if (answer != nullptr && answer->isProvisional) fewestPauses += pauses;
    }
    void control(std::string& bytes, std::size_t at, std::size_t length) {
        static const Answer empty{"", false, false, false};
        replies.push_back(&empty);
        const std::string body = bytes.substr(at, length);
        if (startsWith(body, "log_level=") && length >= 14) {
            if (numberAt(body, 10) <= 3) level = numberAt(body, 10);
        } else if (startsWith(body, "timeout=") && length >= 16) {
            retries = numberAt(body, 8) % 8;
            interval = 1 + numberAt(body, 12) % 2;
            setNumberAt(bytes, at + 8, retries);
            setNumberAt(bytes, at + 12, interval);
        } else if (startsWith(body, "save_cache")) {
            saves = saves || queries > 0;
        }
    }
};

}  // namespace katd_fuzz

#endif
