// Policies: which categories are refused, and how the refusal is reported.
#ifndef GATEWAY_POLICY_H
#define GATEWAY_POLICY_H

#include <map>
#include <string>
#include <vector>

#include "RequestUrl.h"
#include "katclient.h"

namespace gateway {

enum class Verdict { pass, refuse, fail };

struct Decision {
    Verdict verdict;
    int category;  // the one that decided; -1: none
};

struct Policy {
    std::vector<bool> named;            // by category, 0 to 255: those of `block` or `allow`
    bool allows = false;                // `named` are those that pass
    Verdict onUnknown = Verdict::pass;  // katd has no certain answer, and no named category decided
    Verdict onFailure = Verdict::fail;  // katd gave no answer
    UrlSource source = UrlSource::nginx;
    unsigned refusedStatus = 403;  // of HTTP
    std::string blockPage;         // URL of the block page; empty: no Location is sent
    std::string title;             // heading and text of the block page
    std::string text;
    std::string contact;

    Decision decide(const katclient_answer& answer) const;
};

using Policies = std::map<std::string, Policy, std::less<>>;

}  // namespace gateway

#endif
