#include "Questions.h"

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "Fail.h"
#include "UrlServer/Protocol.h"

namespace bench {

using KATD_SPACE::prefixLength;
using KATD_SPACE::ReplyHeader;

namespace {

template <typename T>
void append(const T& value, std::vector<char>* to) {
    const char* const bytes = reinterpret_cast<const char*>(&value);
    to->insert(to->end(), bytes, bytes + sizeof(value));
}

}  // namespace

Questions::Questions(const std::string& path) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t tab = line.find('\t');
        if (tab == line.npos || tab == 0) fail("%s: no question: %s", path.c_str(), line.c_str());
        const std::string asked = line.substr(tab + 1);
        append(static_cast<std::int32_t>(prefixLength + asked.size()), &requests);
        requests.insert(requests.end(), KATD_SPACE::prefixQuery, KATD_SPACE::prefixQuery + prefixLength);
        requests.insert(requests.end(), asked.begin(), asked.end());
        requestEnd.push_back(static_cast<std::uint32_t>(requests.size()));
        std::string categories;
        for (const char* next = line.c_str(); *next >= '0' && *next <= '9';) {
            char* end = nullptr;
            categories += static_cast<char>(std::strtoul(next, &end, 10));
            next = end + (*end == ',');
        }
        ReplyHeader header{};
        header.length = static_cast<std::uint32_t>(categories.size());
        header.matched = line[0] != '-' || line[1] == '!';
        append(header, &replies);
        replies.insert(replies.end(), categories.begin(), categories.end());
        replyEnd.push_back(static_cast<std::uint32_t>(replies.size()));
    }
    if (requestEnd.empty()) fail("%s: no questions in it: make them with generate_list", path.c_str());
}

std::string Questions::url(unsigned i) const {
    const std::size_t begin = requestBegin(i) + sizeof(std::int32_t) + prefixLength;
    return std::string(requests.data() + begin, requestEnd[i] - begin);
}

int Questions::category(unsigned i) const {
    if (replyEnd[i] - replyBegin(i) == sizeof(ReplyHeader)) return -1;
    return static_cast<unsigned char>(replies[replyBegin(i) + sizeof(ReplyHeader)]);
}

}  // namespace bench
